#!/bin/sh
# A blind cable sweep in a real terminal (tmux): the progress redraws one line that fits the
# terminal, and Ctrl-C stops the scan with exit code 130. Every wait is bounded.
set -eu
tunerctl="$1"
session="tunerctl-test-$$"
result=$(mktemp)
trap 'tmux kill-session -t "$session" 2>/dev/null || true; rm -f "$result"' EXIT

# The shell around tunerctl ignores Ctrl-C, so it lives to write the exit code; tunerctl sets its
# own handler.
tmux new-session -d -s "$session" -x 72 -y 20 \
  "sh -c 'trap \"\" INT; \"$tunerctl\" scan 2 --dvbc 474MHz --blind; echo \"exit \$?\" > \"$result\"; sleep 60'"

screen=""
for _ in $(seq 1 100); do
  screen=$(tmux capture-pane -p -t "$session")
  echo "$screen" | grep -q 'MHz ~.*left' && break
  sleep 0.1
done
bars=$(echo "$screen" | grep -c '%' || true)
[ "$bars" -eq 1 ] || { echo "expected one progress line, saw $bars:"; echo "$screen"; exit 1; }
width=$(echo "$screen" | grep '%' | awk '{ print length($0) }')
[ "$width" -le 72 ] || { echo "the progress line is $width columns wide on a 72-column terminal"; exit 1; }

tmux send-keys -t "$session" C-c
for _ in $(seq 1 100); do
  [ -s "$result" ] && break
  sleep 0.1
done
screen=$(tmux capture-pane -p -t "$session")
grep -q '^exit 130$' "$result" || { echo "exit: $(cat "$result")"; echo "$screen"; exit 1; }
echo "$screen" | grep -q '^scan stopped$' || { echo "no 'scan stopped':"; echo "$screen"; exit 1; }
echo "$screen" | grep -q '%' && { echo "the progress line stayed:"; echo "$screen"; exit 1; }
echo "progress and Ctrl-C as a user sees them"
