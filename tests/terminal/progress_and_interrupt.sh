#!/bin/sh
# A blind cable sweep in a real terminal (tmux): the progress redraws one line that fits the
# terminal, and Ctrl-C stops the scan with exit code 130. Every wait is bounded. The terminal
# server is the test's own (a private socket, no configuration file), and tunerctl gets its
# environment from the command line, so the person's own terminal server or variables change
# nothing.
set -eu
tunerctl="$1"
work=$(mktemp -d)
server="$work/tmux.socket"
result="$work/result"
unset TMUX TMUX_TMPDIR
export SHELL=/bin/sh  # the server runs the pane's command with it
tmux_() { tmux -S "$server" -f /dev/null "$@"; }
trap 'tmux_ kill-server 2>/dev/null || true; rm -rf "$work"' EXIT

# The shell around tunerctl ignores Ctrl-C, so it lives to write the exit code; tunerctl sets its
# own handler.
tmux_ new-session -d -s progress -x 72 -y 20 \
  "sh -c 'trap \"\" INT; env TUNERCTL_IN_PROCESS=1 MOX_HIDL_SERVICE_DIR=\"$work/registry\" \"$tunerctl\" scan 2 --dvbc 474MHz --blind; echo \"exit \$?\" > \"$result\"; sleep 60'"

screen=""
for _ in $(seq 1 100); do
  screen=$(tmux_ capture-pane -p -t progress)
  echo "$screen" | grep -q 'MHz ~.*left' && break
  sleep 0.1
done
bars=$(echo "$screen" | grep -c '%' || true)
[ "$bars" -eq 1 ] || { echo "expected one progress line, saw $bars:"; echo "$screen"; exit 1; }
width=$(echo "$screen" | grep '%' | awk '{ print length($0) }')
[ "$width" -le 72 ] || { echo "the progress line is $width columns wide on a 72-column terminal"; exit 1; }

tmux_ send-keys -t progress C-c
for _ in $(seq 1 100); do
  [ -s "$result" ] && break
  sleep 0.1
done
screen=$(tmux_ capture-pane -p -t progress)
grep -q '^exit 130$' "$result" || { echo "exit: $(cat "$result")"; echo "$screen"; exit 1; }
echo "$screen" | grep -q '^scan stopped$' || { echo "no 'scan stopped':"; echo "$screen"; exit 1; }
echo "$screen" | grep -q '%' && { echo "the progress line stayed:"; echo "$screen"; exit 1; }
echo "progress and Ctrl-C as a user sees them"
