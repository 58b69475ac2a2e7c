#!/bin/sh
# Compares the symbols that a built module defines for others with the ten that it may.
# Usage: check_exports.sh NM MODULE
expected='CloseWebSocket DistributeCommand DoAction GetAlias GetImage GetPorts GetVersionDesc GetWaitTimeout Reserved SetImage'
case $(uname) in
  Darwin) list() { "$1" -gjU "$2" | sed 's/^_//'; } ;;
  *) list() { "$1" -D --defined-only "$2" | awk '{print $3}'; } ;;
esac
found=$(list "$1" "$2" | LC_ALL=C sort | tr '\n' ' ')
if [ "$found" != "$expected " ]; then
  echo "exported: $found"
  echo "expected: $expected"
  exit 1
fi
