#pragma once

#include <QPainterPath>

class QWindow;

// What the shell asks of the window system beyond the toolkit: where a window takes the mouse, whether
// a compositor blends see-through windows, and showing a window on every workspace. On X11 this speaks
// to the X server; elsewhere the toolkit's defaults stand (windows are composited, the whole window
// takes the mouse).
namespace WindowSystem {

// Whether see-through parts of `window` show what lies beneath: a compositing manager owns the screen's
// _NET_WM_CM_S<n> selection. Without one they would be drawn opaque black.
bool isCompositing(const QWindow *window);

// Only `visible` (in the window's own coordinates) takes the mouse; a click elsewhere reaches the window
// beneath. With `cutOut` the window is also cut to that shape, for a window system that would draw
// its see-through parts black.
void setShape(QWindow *window, const QPainterPath &visible, bool cutOut);

// Shows `window` on every workspace. Called before the window is shown, as the window manager reads it
// when it takes the window on.
void showOnAllWorkspaces(QWindow *window);

} // namespace WindowSystem
