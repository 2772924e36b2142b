#include "WindowGeometry.h"

#include <cstdlib>

namespace WindowGeometry {

namespace {

int rightOf(const QRect &r)
{
    return r.x() + r.width();
}
int bottomOf(const QRect &r)
{
    return r.y() + r.height();
}

} // namespace

QRect logoFrameFor(const QRect &chat)
{
    const QPoint centre(chat.x() + HeaderLogoX, chat.y() + HeaderLogoY);
    return {centre.x() - LogoSize / 2, centre.y() - LogoSize / 2, LogoSize, LogoSize};
}

QRect chatFrameFor(const QRect &logo)
{
    const int midX = logo.x() + logo.width() / 2;
    const int midY = logo.y() + logo.height() / 2;
    return {midX - HeaderLogoX, midY - HeaderLogoY, ChatWidth, ChatHeight};
}

QRect clampedToArea(const QRect &frame, const QRect &area)
{
    QRect result = frame;
    if (frame.x() < area.x())
        result.moveLeft(area.x());
    else if (rightOf(frame) > rightOf(area))
        result.moveLeft(rightOf(area) - frame.width());
    if (frame.y() < area.y())
        result.moveTop(area.y());
    else if (bottomOf(frame) > bottomOf(area))
        result.moveTop(bottomOf(area) - frame.height());
    return result;
}

Edge nearestEdge(const QRect &frame, const QRect &area)
{
    const int distances[] = {
        std::abs(frame.x() - area.x()),
        std::abs(rightOf(area) - rightOf(frame)),
        std::abs(frame.y() - area.y()),
        std::abs(bottomOf(area) - bottomOf(frame)),
    };
    int best = 0;
    for (int i = 1; i < 4; ++i) {
        if (distances[i] < distances[best])
            best = i;
    }
    return static_cast<Edge>(best);
}

QRect snappedToNearestEdge(const QRect &frame, const QRect &area)
{
    QRect result = frame;
    switch (nearestEdge(frame, area)) {
    case Edge::Left:
        result.moveLeft(area.x());
        break;
    case Edge::Right:
        result.moveLeft(rightOf(area) - frame.width());
        break;
    case Edge::Top:
        result.moveTop(area.y());
        break;
    case Edge::Bottom:
        result.moveTop(bottomOf(area) - frame.height());
        break;
    }
    return result;
}

QRect centredIn(const QSize &size, const QRect &area)
{
    return {area.x() + (area.width() - size.width()) / 2, area.y() + (area.height() - size.height()) / 2,
            size.width(), size.height()};
}

QRect helpTipFrameFor(const QRect &anchor, const QSize &size, const QRect &area)
{
    constexpr int gap = 6;
    QRect tip(QPoint(anchor.x() + (anchor.width() - size.width()) / 2, bottomOf(anchor) + gap), size);
    if (bottomOf(tip) > bottomOf(area))
        tip.moveTop(anchor.y() - gap - size.height());
    return clampedToArea(tip, area);
}

} // namespace WindowGeometry
