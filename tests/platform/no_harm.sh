#!/bin/bash
# Says which calls that could harm the machine stand in the object files or programs given.
set -euo pipefail
harmful='reboot|kill|killpg|tgkill|tkill|sigqueue|system|popen|syscall|mount|umount|umount2|sethostname|settimeofday|clock_settime'
found=$(nm -A "$@" 2>/dev/null | grep -E " U ($harmful)(@.*)?\$" || true)
symbols=$(nm "$@" 2>/dev/null | wc -l)
if [ "$symbols" -lt 50 ]; then
  echo "too few symbols to judge by: $symbols"
  exit 1
fi
if [ -n "$found" ]; then
  echo "$found"
  exit 1
fi
