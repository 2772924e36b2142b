#pragma once

#include <QRect>

// Where the shell's windows go. Frames are in screen coordinates with y growing downwards; a frame's
// right edge is x + width and its bottom edge y + height (not QRect::right()/bottom(), which are one less).
namespace WindowGeometry {

inline constexpr int ChatWidth = 400;
inline constexpr int ChatHeight = 600;
inline constexpr int LogoSize = 70;
// Where the chat window's header draws its logo, measured from the window's top-left corner.
inline constexpr int HeaderLogoX = 26;
inline constexpr int HeaderLogoY = 22;

enum class Edge { Left, Right, Top, Bottom };

// The logo window that takes the place of the chat window with frame `chat`: centred on the header's logo.
QRect logoFrameFor(const QRect &chat);
// The chat window that grows out of the logo window with frame `logo`; its header logo lands on the logo's
// centre. Not kept on the screen: a logo at the right edge opens a window that reaches beyond it.
QRect chatFrameFor(const QRect &logo);

// `frame` moved (never resized) so that it lies inside `area` where it fits; an edge beyond the area's
// left or top edge wins over one beyond the right or bottom edge.
QRect clampedToArea(const QRect &frame, const QRect &area);

// The edge of `area` closest to `frame`; on equal distances the earlier of left, right, top, bottom.
Edge nearestEdge(const QRect &frame, const QRect &area);
// `frame` moved along one axis until it touches the nearest edge of `area`.
QRect snappedToNearestEdge(const QRect &frame, const QRect &area);

// A frame of `size` centred in `area`.
QRect centredIn(const QSize &size, const QRect &area);

// Where a hover help of `size` opens for a control with frame `anchor`: centred below it, above it when
// there is no room below, and moved sideways to stay inside `area`.
QRect helpTipFrameFor(const QRect &anchor, const QSize &size, const QRect &area);

} // namespace WindowGeometry
