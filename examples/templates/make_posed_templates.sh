#!/usr/bin/env bash
# Makes the tag templates of the captures that have no rest-pose frame (bone-aligned
# joints): each capture's stance on frame 1 is exported, posed into its structure's rest
# pose by pose_for_tagging.py, tagged and saved. Run from the build folder:
#   bash ../examples/templates/make_posed_templates.sh
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
declare -A captures=(
  [joint_root]="../../shared/data/bvh/dataset-1_walk_normal_001.bvh JointRoot"
  [dog]="../../shared/data/bvh/dog_D1_001_KAN01_001.bvh Dog"
)
for skeleton in "${!captures[@]}"; do
  read -r file model <<< "${captures[$skeleton]}"
  printf 'NewScene()\nImportBVH("%s", "%s")\nExportTransforms("%s", "%s", 1, 1)\n' \
    "$file" "$model" "$model" "$work/$skeleton.json" > "$work/export.krx"
  ./krx "$work/export.krx"
  /usr/bin/python3 "$here/pose_for_tagging.py" "$skeleton" "$work/$skeleton.json" > "$work/$skeleton.krx"
  ./krx "$work/$skeleton.krx" 2> >(grep -v '^\[8\] \(SetValue\|RemoveAllAnimation\)' >&2)
done
