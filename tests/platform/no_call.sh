#!/bin/bash
# Says which of some calls stand in the object files or programs given: no_call.sh 'CALL|CALL' FILE...
set -euo pipefail
calls=$1
shift
found=$(nm -A "$@" 2>/dev/null | grep -E " U ($calls)(@.*)?\$" || true)
symbols=$(nm "$@" 2>/dev/null | wc -l)
if [ "$symbols" -lt 50 ]; then
  echo "too few symbols to judge by: $symbols"
  exit 1
fi
if [ -n "$found" ]; then
  echo "$found"
  exit 1
fi
