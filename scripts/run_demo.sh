#!/usr/bin/env bash
# Sets up and builds the project, then runs the main job on the project's own example data:
# krx loads the plug-in, lists what it registered and runs the demo command script (tag the
# walker, save its tag template and its motion as a motion file, tag the strider, retarget
# the walk onto it, save the scene and both rigs' transforms), then prints both leg lengths.
# Output lands in build/demo/.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$here"

bash scripts/setup.sh build

mkdir -p build/demo
cd build
echo "== what the plug-in registered"
./krx --list --plugin ./libkavor.so
echo "== the demo script"
./krx --echo ../examples/demo.krx -c 'GetValue("Walker.ZRKMap.LegLength")' \
  -c 'GetValue("Strider.ZRKMap.LegLength")' -c 'RetargetExtractEndFrame("Strider")'
echo "== results in build/demo/"
ls -l demo
