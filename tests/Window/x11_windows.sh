#!/usr/bin/env bash
# The windows as a window manager shows them, driven with the mouse and keyboard of a real X server:
# focus at launch and after mini mode, moving by the background and letting go on release, clicks
# passing outside the visible glass, showing on every workspace, with and without a compositor, and at
# twice the scale.
#   x11_windows.sh APP TEST_PROVIDER
# Needs Xvfb, openbox, xcompmgr, xdotool, xwininfo, xprop, xev; exits 77 (skipped) without them.
set -uo pipefail

APP=$1
PROVIDER=$2
for tool in Xvfb openbox xcompmgr xdotool xwininfo xprop xev; do
  if ! command -v "$tool" >/dev/null; then
    echo "SKIP: $tool is not installed"
    exit 77
  fi
done

WORK=$(mktemp -d)
PIDS=()
FAILURES=0
trap 'stop_all; rm -rf "$WORK"' EXIT

stop_all() {
  for pid in "${PIDS[@]}"; do kill "$pid" 2>/dev/null; done
  for pid in "${PIDS[@]}"; do wait "$pid" 2>/dev/null; done
  PIDS=()
}

check() { # description, command...
  local what=$1
  shift
  if "$@"; then
    echo "PASS   $PASS_NAME: $what"
  else
    echo "FAIL!  $PASS_NAME: $what"
    echo "    keyboard on: $(xdotool getwindowfocus getwindowname 2>/dev/null)"
    echo "    provider: $(tail -n 3 "$WORK/provider.log" | tr '\n' '|')"
    echo "    app: $(tail -n 5 "$WORK/app.log" | tr '\n' '|')"
    FAILURES=$((FAILURES + 1))
  fi
}

# A pass that cannot go on: one failure with the log that tells why, and its programs stopped.
abandon_pass() { # what, log
  echo "FAIL!  $PASS_NAME: $1"
  FAILURES=$((FAILURES + 1))
  cat "$2"
  stop_all
}

eventually() { # seconds, command...: polls until the command succeeds
  local until=$((SECONDS + $1))
  shift
  while ! "$@"; do
    [ $SECONDS -ge $until ] && return 1
    sleep 0.1
  done
}

# seconds, command...: polls until the command succeeds and prints what it printed then. A window is looked
# up once this way: a search can miss a window that is there while another one vanishes during the search.
found() {
  local until=$((SECONDS + $1)) out
  shift
  until out=$("$@"); do
    [ $SECONDS -ge $until ] && return 1
    sleep 0.1
  done
  echo "$out"
}

# Geometry of an X window: sets X Y W H.
geometry() {
  local info
  info=$(xwininfo -id "$1" 2>/dev/null)
  X=$(awk '/Absolute upper-left X/ {print $4}' <<<"$info")
  Y=$(awk '/Absolute upper-left Y/ {print $4}' <<<"$info")
  W=$(awk '/Width:/ {print $2}' <<<"$info")
  H=$(awk '/Height:/ {print $2}' <<<"$info")
}

has_keyboard() { [ "$(xdotool getwindowfocus 2>/dev/null)" = "$1" ]; }
viewable() { xwininfo -id "$1" 2>/dev/null | grep -q 'IsViewable'; }
sized() { geometry "$1" && [ "$W x $H" = "$2 x $3" ]; }            # window, width, height
margin_of() { geometry "$1" && [ $((($W - $2) / 2)) -eq "$3" ]; } # window, panel width, margin
on_all_workspaces() { xprop -id "$1" _NET_WM_DESKTOP | grep -q '= 4294967295'; }
requests() { grep -c 'chat/completions' "$WORK/provider.log"; }
presses_beneath() { grep -c '^ButtonPress' "$WORK/xev.log"; }
window_named() { # name: the first visible window with that name; fails while there is none
  local id
  id=$(xdotool search --onlyvisible --name "$1" 2>/dev/null | head -1)
  [ -n "$id" ] && echo "$id"
}
window_of_size() { # name, width: the visible window with that name and width
  local id
  for id in $(xdotool search --onlyvisible --name "$1" 2>/dev/null); do
    geometry "$id"
    if [ "$W" = "$2" ]; then
      echo "$id"
      return 0
    fi
  done
  return 1
}

# Presses at x y, moves by dx dy in ten steps, releases; then moves on without a button.
# Prints "moved_x moved_y after_release_x after_release_y" of the window.
drag_and_let_go() { # window x y dx dy
  local id=$1 sx sy
  geometry "$id"
  sx=$X sy=$Y
  xdotool mousemove "$2" "$3"
  xdotool mousedown 1
  for _ in 1 2 3 4 5 6 7 8 9 10; do
    xdotool mousemove_relative -- $(($4 / 10)) $(($5 / 10))
    sleep 0.02
  done
  xdotool mouseup 1
  sleep 0.3
  geometry "$id"
  local mx=$((X - sx)) my=$((Y - sy))
  xdotool mousemove_relative -- 90 70
  sleep 0.4
  geometry "$id"
  echo "$mx $my $((X - sx)) $((Y - sy))"
}

drags_end_on_release() { # window x y (relative to the window), repeated three times
  local id=$1 i result
  for i in 1 2 3; do
    geometry "$id"
    result=$(drag_and_let_go "$id" $((X + $2)) $((Y + $3)) 60 40)
    if [ "$result" != "60 40 60 40" ]; then
      echo "    drag $i moved the window by: $result (expected 60 40, then no more)"
      return 1
    fi
  done
}

run_pass() { # name, compositor (yes/no), scale
  PASS_NAME=$1
  local composited=$2 scale=$3 display
  exec 3>"$WORK/display"
  Xvfb -displayfd 3 -screen 0 2400x1600x24 -nolisten tcp >"$WORK/xvfb.log" 2>&1 &
  PIDS+=($!)
  if ! eventually 10 test -s "$WORK/display"; then
    abandon_pass "Xvfb did not start" "$WORK/xvfb.log"
    return
  fi
  exec 3>&-
  display=$(head -1 "$WORK/display")
  export DISPLAY=":$display"
  : >"$WORK/display"

  openbox --sm-disable >"$WORK/openbox.log" 2>&1 &
  PIDS+=($!)
  eventually 10 sh -c 'xprop -root _NET_SUPPORTING_WM_CHECK | grep -q window' || echo "    openbox did not start"
  if [ "$composited" = yes ]; then
    xcompmgr >"$WORK/xcompmgr.log" 2>&1 &
    PIDS+=($!)
    sleep 0.5
  fi
  # A window beneath everything that reports the clicks it receives.
  xev -geometry 2400x1600+0+0 -event button >"$WORK/xev.log" 2>&1 &
  PIDS+=($!)
  eventually 10 sh -c 'xdotool search --onlyvisible --name "Event Tester" 2>/dev/null | grep -q .'

  "$PROVIDER" --port 0 --delay 5 >"$WORK/provider.log" 2>&1 &
  PIDS+=($!)
  # The whole line, not just its start: the provider may still be writing it.
  eventually 30 grep -q 'QUILLMOOR_API_BASE_URL=http://[^ ]*/v1$' "$WORK/provider.log"
  local base
  base=$(sed -n 's/.*QUILLMOOR_API_BASE_URL=\(http:[^ ]*\/v1\)$/\1/p' "$WORK/provider.log" | head -1)
  # Without its address the app would ask the compiled-in provider, and every later check would mislead.
  if [ -z "$base" ]; then
    abandon_pass "the test provider gave no address" "$WORK/provider.log"
    return
  fi

  rm -rf "$WORK/home" && mkdir -p "$WORK/home"
  HOME="$WORK/home" XDG_CONFIG_HOME="$WORK/home/.config" QUILLMOOR_API_BASE_URL="$base" \
    QT_QPA_PLATFORM=xcb QT_SCALE_FACTOR="$scale" QT_LOGGING_RULES="quillmoor.app.info=true" \
    "$APP" >"$WORK/app.log" 2>&1 &
  PIDS+=($!)

  local chat
  chat=$(found 20 window_named '^Quillmoor$')
  if [ -z "$chat" ]; then
    abandon_pass "the chat window did not appear" "$WORK/app.log"
    return
  fi

  # Typing right after launch goes into the question field: once the window shows its first frame, as a person
  # sees it (a sanitizer build may take seconds for it).
  eventually 30 grep -q 'first frame' "$WORK/app.log"
  check "the chat window has the keyboard at launch" eventually 5 has_keyboard "$chat"
  xdotool type --delay 15 "Hallo"
  xdotool key Return
  check "the question field has the keyboard at launch" eventually 5 sh -c "[ \$(grep -c chat/completions '$WORK/provider.log') -ge 1 ]"

  local margin panel_w=$((400 * scale)) panel_h=$((600 * scale))
  # The window may still be taking its size (a sanitizer build is slow to).
  if [ "$composited" = yes ]; then
    check "a compositor blends a shadow margin around the glass" \
      eventually 5 margin_of "$chat" "$panel_w" $((28 * scale))
  else
    check "without a compositor the glass is the window" eventually 5 sized "$chat" "$panel_w" "$panel_h"
  fi
  geometry "$chat"
  margin=$(((W - panel_w) / 2))

  check "the chat window is on every workspace" on_all_workspaces "$chat"
  xdotool set_desktop 1
  sleep 0.3
  check "the chat window stays after a switch of workspace" viewable "$chat"
  xdotool set_desktop 0
  sleep 0.3

  # Clicks: outside the glass (the shadow margin, or the cut-out corner) reach the window beneath;
  # on the glass they do not.
  local before
  before=$(presses_beneath)
  geometry "$chat"
  if [ "$composited" = yes ]; then
    xdotool mousemove $((X + margin / 2)) $((Y + H / 2)) click 1
  else
    xdotool mousemove $((X + 1)) $((Y + 1)) click 1
  fi
  check "a click outside the visible glass reaches the window beneath" \
    eventually 3 sh -c "[ \$(grep -c '^ButtonPress' '$WORK/xev.log') -gt $before ]"
  before=$(presses_beneath)
  xdotool mousemove $((X + margin + 100 * scale)) $((Y + margin + 20 * scale)) click 1
  sleep 0.3
  check "a click on the glass stays with the chat window" test "$(presses_beneath)" = "$before"

  # Moving by the header, the input bar's background and the conversation's empty space ends with
  # the release, every time.
  check "a drag by the header ends on release" drags_end_on_release "$chat" $((margin + 150 * scale)) $((margin + 22 * scale))
  check "a drag by the input bar's background ends on release" drags_end_on_release "$chat" $((margin + 6 * scale)) $((margin + 570 * scale))
  check "a drag by the conversation's empty space ends on release" drags_end_on_release "$chat" $((margin + 372 * scale)) $((margin + 500 * scale))

  # The settings window moves by its background as well.
  xdotool key ctrl+comma
  local settings
  settings=$(found 10 window_named '^Einstellungen$')
  if [ -n "$settings" ]; then
    check "the settings window is on every workspace" on_all_workspaces "$settings"
    check "a drag of the settings window ends on release" drags_end_on_release "$settings" $((margin + 200 * scale)) $((margin + 18 * scale))
    xdotool key ctrl+w
    check "the settings window closes" eventually 5 sh -c "! xwininfo -id $settings | grep -q IsViewable"
  else
    check "the settings window opens" false
  fi

  # Mini mode: only the round logo takes clicks, it is on every workspace, and resting on it opens its
  # help; a click on it brings back the chat window with the keyboard in the question field.
  geometry "$chat"
  xdotool mousemove $((X + margin + 26 * scale)) $((Y + margin + 22 * scale)) click 1
  local logo
  # A sanitizer build takes seconds to swap the windows.
  logo=$(found 10 window_of_size '^Quillmoor$' $((70 * scale)))
  if [ -z "$logo" ]; then
    check "the logo appears in mini mode" false
  else
    sleep 0.5
    check "the logo is on every workspace" on_all_workspaces "$logo"
    geometry "$logo"
    before=$(presses_beneath)
    xdotool mousemove $((X + 2)) $((Y + 2)) click 1
    check "a click on the logo's transparent corner reaches the window beneath" \
      eventually 3 sh -c "[ \$(grep -c '^ButtonPress' '$WORK/xev.log') -gt $before ]"
    sleep 0.5
    check "the corner click leaves mini mode on" viewable "$logo"
    xdotool mousemove $((X + W / 2)) $((Y + H / 2))
    check "resting on the logo opens its help" eventually 4 sh -c "xdotool search --onlyvisible --name 'Click to open Quillmoor' 2>/dev/null | grep -q ."
    xdotool click 1
    check "a click on the logo brings back the chat window" eventually 5 viewable "$chat"
    check "the chat window has the keyboard after mini mode" eventually 5 has_keyboard "$chat"
    sleep 0.3
    xdotool type --delay 15 "Noch"
    xdotool key Return
    check "the question field has the keyboard after mini mode" \
      eventually 5 sh -c "[ \$(grep -c chat/completions '$WORK/provider.log') -ge 2 ]"
  fi

  stop_all
}

START=$SECONDS
run_pass "no compositor" no 1
run_pass "compositor" yes 1
run_pass "compositor, scale 2" yes 2
echo "Checked in $((SECONDS - START)) s; $FAILURES failed"
[ "$FAILURES" -eq 0 ]
