#!/usr/bin/env bash
set -euo pipefail
cd "$(dirname "$0")/../.."

status=0
scripts/lib/with-desktop sh -c 'exit 7' || status=$?
[ "$status" -eq 7 ]
