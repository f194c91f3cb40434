#!/usr/bin/env bash
set -euo pipefail
cd "$(dirname "$0")/../.."
meeting=$(mktemp --directory)
trap 'rm -rf "$meeting"' EXIT

# Each side binds the port, and gives it back only when the other has it, too.
bind_and_meet='
import pathlib, socket, sys, time
meeting, own, other = pathlib.Path(sys.argv[1]), sys.argv[2], sys.argv[3]
port = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
port.bind(("127.0.0.1", 6129))
(meeting / own).touch()
end = time.monotonic() + 120
while not (meeting / other).exists():
    if time.monotonic() > end:
        sys.exit("the other side never had the port")
    time.sleep(0.05)
'
scripts/lib/with-desktop python3 -c "$bind_and_meet" "$meeting" left right &
left=$!
scripts/lib/with-desktop python3 -c "$bind_and_meet" "$meeting" right left
wait "$left"
