#include "WindowSystem.h"

#include <QGuiApplication>
#include <QPolygonF>
#include <QRegion>
#include <QTransform>
#include <QWindow>

#include <xcb/shape.h>
#include <xcb/xcb.h>

#include <cstdlib>
#include <memory>
#include <vector>

namespace {

xcb_connection_t *x11Connection()
{
    const auto *x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    return x11 ? x11->connection() : nullptr;
}

template <typename Reply> using ReplyPointer = std::unique_ptr<Reply, decltype(&std::free)>;

xcb_atom_t atom(xcb_connection_t *connection, const QByteArray &name)
{
    const ReplyPointer<xcb_intern_atom_reply_t> reply(
        xcb_intern_atom_reply(
            connection, xcb_intern_atom(connection, 0, uint16_t(name.size()), name.constData()), nullptr),
        &std::free);
    return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
}

// The number of the X screen that holds `window`, as the _NET_WM_CM_S<n> selection names it.
int screenNumber(xcb_connection_t *connection, xcb_window_t window)
{
    const ReplyPointer<xcb_get_geometry_reply_t> geometry(
        xcb_get_geometry_reply(connection, xcb_get_geometry(connection, window), nullptr), &std::free);
    if (!geometry)
        return 0;
    int number = 0;
    for (auto it = xcb_setup_roots_iterator(xcb_get_setup(connection)); it.rem;
         xcb_screen_next(&it), ++number) {
        if (it.data->root == geometry->root)
            return number;
    }
    return 0;
}

// The shape in the window's device pixels, as rectangles the X server takes.
std::vector<xcb_rectangle_t> rectanglesOf(const QWindow *window, const QPainterPath &shape)
{
    const qreal ratio = window->devicePixelRatio();
    const QPolygonF outline = shape.toFillPolygon(QTransform::fromScale(ratio, ratio));
    const QRegion region(outline.toPolygon(), Qt::WindingFill);
    std::vector<xcb_rectangle_t> rectangles;
    rectangles.reserve(size_t(region.rectCount()));
    for (const QRect &r : region) {
        rectangles.push_back({int16_t(r.x()), int16_t(r.y()), uint16_t(r.width()), uint16_t(r.height())});
    }
    return rectangles;
}

} // namespace

namespace WindowSystem {

bool isCompositing(const QWindow *window)
{
    xcb_connection_t *connection = x11Connection();
    if (!connection || !window)
        return true;
    const xcb_window_t id = xcb_window_t(window->winId());
    const QByteArray selection = "_NET_WM_CM_S" + QByteArray::number(screenNumber(connection, id));
    const xcb_atom_t name = atom(connection, selection);
    if (name == XCB_ATOM_NONE)
        return false;
    const ReplyPointer<xcb_get_selection_owner_reply_t> owner(
        xcb_get_selection_owner_reply(connection, xcb_get_selection_owner(connection, name), nullptr),
        &std::free);
    return owner && owner->owner != XCB_WINDOW_NONE;
}

void setShape(QWindow *window, const QPainterPath &visible, bool cutOut)
{
    if (!window)
        return;
    xcb_connection_t *connection = x11Connection();
    if (!connection) {
        // Elsewhere the toolkit's mask is the input region (and composited windows need no cut).
        window->setMask(QRegion(visible.toFillPolygon().toPolygon(), Qt::WindingFill));
        return;
    }
    const xcb_window_t id = xcb_window_t(window->winId());
    const std::vector<xcb_rectangle_t> rectangles = rectanglesOf(window, visible);
    xcb_shape_rectangles(connection, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_INPUT, XCB_CLIP_ORDERING_UNSORTED, id, 0,
                         0, uint32_t(rectangles.size()), rectangles.data());
    if (cutOut) {
        xcb_shape_rectangles(connection, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING, XCB_CLIP_ORDERING_UNSORTED,
                             id, 0, 0, uint32_t(rectangles.size()), rectangles.data());
    } else {
        // The whole window is drawn again: the compositor blends its shadow.
        xcb_shape_mask(connection, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING, id, 0, 0, XCB_PIXMAP_NONE);
    }
    xcb_flush(connection);
}

void showOnAllWorkspaces(QWindow *window)
{
    xcb_connection_t *connection = x11Connection();
    if (!connection || !window)
        return;
    const xcb_window_t id = xcb_window_t(window->winId());
    const uint32_t allDesktops = 0xFFFFFFFF;
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, id, atom(connection, "_NET_WM_DESKTOP"),
                        XCB_ATOM_CARDINAL, 32, 1, &allDesktops);

    // Added to the states the toolkit keeps there (it merges its own into them when it shows the window).
    const xcb_atom_t state = atom(connection, "_NET_WM_STATE");
    const xcb_atom_t sticky = atom(connection, "_NET_WM_STATE_STICKY");
    const ReplyPointer<xcb_get_property_reply_t> current(
        xcb_get_property_reply(connection, xcb_get_property(connection, 0, id, state, XCB_ATOM_ATOM, 0, 1024),
                               nullptr),
        &std::free);
    bool present = false;
    if (current && current->format == 32 && current->type == XCB_ATOM_ATOM) {
        const auto *atoms = static_cast<const xcb_atom_t *>(xcb_get_property_value(current.get()));
        for (uint32_t i = 0; i < current->value_len && !present; ++i)
            present = atoms[i] == sticky;
    }
    if (!present)
        xcb_change_property(connection, XCB_PROP_MODE_APPEND, id, state, XCB_ATOM_ATOM, 32, 1, &sticky);
    xcb_flush(connection);
}

} // namespace WindowSystem
