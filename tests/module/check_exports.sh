#!/bin/sh
# Compares the symbols that a built module defines for others with the ten that it may.
# Usage: check_exports.sh NM MODULE
expected='CloseWebSocket DistributeCommand DoAction GetAlias GetImage GetPorts GetVersionDesc GetWaitTimeout Reserved SetImage'
found=$("$1" -D --defined-only "$2" | awk '{print $3}' | LC_ALL=C sort | tr '\n' ' ')
if [ "$found" != "$expected " ]; then
  echo "exported: $found"
  echo "expected: $expected"
  exit 1
fi
