#!/usr/bin/env python3
"""Writes a krx script that puts an imported capture into its structure's rest pose, tags it
and saves a tag template.

Captures whose joints are aligned with their bones (every offset along the joint's own X
axis) have no rest-pose frame: zero rotations lay every bone along one line. This starts
from the character's stance on frame 1 instead (read from the transforms krx exported for
that frame), turns it to face +Z with its left side towards +X, then swings each tagged
joint, parents first, so that its bone points along the structure's align direction for the
node it plays. A swing is the smallest turn that does it, so each bone keeps the twist it
had in the stance, which is what makes the tags agree from one capture to the next.

    pose_for_tagging.py CONFIG TRANSFORMS.json > script.krx

CONFIG names one of the skeletons below.
"""
import json
import math
import re
import sys

import numpy as np

STRUCTURES = "../data/Addons/Trevalin/Data/Structures/"

# Per skeleton: the file, the model name, the structure (its files, and the name the tag
# page uses), the hip joints on the left and on the right (for the facing), the template to
# write and the tags: structure node, joint, and the joint its bone points at (None: the
# joint keeps the direction it has in the stance). Right-side nodes come before their left
# counterparts so that no mirror fill has to guess.
SKELETONS = {
    "joint_root": {
        "bvh": "../../shared/data/bvh/dataset-1_walk_normal_001.bvh",
        "model": "JointRoot",
        "structure_files": ["Humanoid.base", "Mocap/BvhClassic.structure"],
        "structure": "BvhClassic",
        "hips": ("UpperLeg_L", "UpperLeg_R"),
        "template": "JointRootNames.tagt",
        "tags": [
            ("Hips", "Hips", "Spine"), ("Spine", "Spine", "Chest"), ("Spine2", "Chest", "Neck"),
            ("Neck", "Neck", "Head"), ("Head", "Head", None),
            ("rHip", "UpperLeg_R", "LowerLeg_R"), ("lHip", "UpperLeg_L", "LowerLeg_L"),
            ("rKnee", "LowerLeg_R", "Foot_R"), ("lKnee", "LowerLeg_L", "Foot_L"),
            ("rAnkle", "Foot_R", "Toes_R"), ("lAnkle", "Foot_L", "Toes_L"),
            ("rToes", "Toes_R", None), ("lToes", "Toes_L", None),
            ("rClavicle", "Shoulder_R", "UpperArm_R"), ("lClavicle", "Shoulder_L", "UpperArm_L"),
            ("rShoulder", "UpperArm_R", "LowerArm_R"), ("lShoulder", "UpperArm_L", "LowerArm_L"),
            ("rElbow", "LowerArm_R", "Hand_R"), ("lElbow", "LowerArm_L", "Hand_L"),
            ("rWrist", "Hand_R", None), ("lWrist", "Hand_L", None),
        ],
    },
    "dog": {
        "bvh": "../../shared/data/bvh/dog_D1_001_KAN01_001.bvh",
        "model": "Dog",
        "structure_files": ["Quadruped.base", "Quadruped.structure"],
        "structure": "Quadruped",
        "hips": ("LeftUpLeg", "RightUpLeg"),
        "template": "DogJointNames.tagt",
        "tags": [
            ("Hips", "Hips", None), ("Spine", "Spine", None), ("Spine1", "Spine1", "Neck"),
            ("Neck", "Neck", "Head"), ("Head", "Head", "Head_End"),
            ("rHip", "RightUpLeg", "RightLeg"), ("lHip", "LeftUpLeg", "LeftLeg"),
            ("rStifle", "RightLeg", "RightFoot"), ("lStifle", "LeftLeg", "LeftFoot"),
            ("rHock", "RightFoot", "RightFoot_End"), ("lHock", "LeftFoot", "LeftFoot_End"),
            ("rHindPaw", "RightFoot_End", None), ("lHindPaw", "LeftFoot_End", None),
            ("Tail", "Tail", "Tail1"), ("Tail1", "Tail1", "Tail1_End"),
            ("rScapula", "RightShoulder", "RightArm"), ("lScapula", "LeftShoulder", "LeftArm"),
            ("rShoulder", "RightArm", "RightForeArm"), ("lShoulder", "LeftArm", "LeftForeArm"),
            ("rElbow", "RightForeArm", "RightHand"), ("lElbow", "LeftForeArm", "LeftHand"),
            ("rCarpus", "RightHand", "RightHand_End"), ("lCarpus", "LeftHand", "LeftHand_End"),
            ("rForePaw", "RightHand_End", None), ("lForePaw", "LeftHand_End", None),
        ],
    },
}

TYPE_WORDS = {"hip", "child", "anchor", "ik", "friction", "free"}


def read_aligns(files):
    """Structure node name -> align direction, from the structure's text files."""
    aligns = {}
    for name in files:
        with open(STRUCTURES + name) as f:
            for line in f:
                words = line.split("#")[0].split()
                if len(words) >= 5 and words[1] in TYPE_WORDS:
                    aligns[words[0]] = np.array([float(w) for w in words[2:5]])
    return aligns


def quat_matrix(w, x, y, z):
    """Rotation matrix (column vectors) of a unit quaternion."""
    return np.array([
        [1 - 2 * (y * y + z * z), 2 * (x * y - w * z), 2 * (x * z + w * y)],
        [2 * (x * y + w * z), 1 - 2 * (x * x + z * z), 2 * (y * z - w * x)],
        [2 * (x * z - w * y), 2 * (y * z + w * x), 1 - 2 * (x * x + y * y)],
    ])


def swing(a, b):
    """The smallest rotation turning direction a onto direction b."""
    a = a / np.linalg.norm(a)
    b = b / np.linalg.norm(b)
    axis = np.cross(a, b)
    s, c = np.linalg.norm(axis), float(np.dot(a, b))
    if s < 1e-12:
        if c > 0:
            return np.eye(3)
        axis = np.cross(a, [1.0, 0, 0]) if abs(a[0]) < 0.9 else np.cross(a, [0, 1.0, 0])
        s = np.linalg.norm(axis)
    k = axis / s
    angle = math.atan2(s, c)
    kx = np.array([[0, -k[2], k[1]], [k[2], 0, -k[0]], [-k[1], k[0], 0]])
    return np.eye(3) + math.sin(angle) * kx + (1 - math.cos(angle)) * kx @ kx


def euler_xyz(r):
    """Angles (degrees) about X, then Y, then Z reproducing r = Rz Ry Rx."""
    ry = math.asin(max(-1.0, min(1.0, -r[2, 0])))
    rx = math.atan2(r[2, 1], r[2, 2])
    rz = math.atan2(r[1, 0], r[0, 0])
    return [math.degrees(v) for v in (rx, ry, rz)]


def main():
    config = SKELETONS[sys.argv[1]]
    with open(sys.argv[2]) as f:
        exported = json.load(f)
    model = config["model"]
    objects = exported["objects"]
    names = [o["name"] for o in objects]
    parent = {o["name"]: o["parent"] for o in objects}
    pos = {}
    rot = {}
    for o in objects:
        g = o["global"][0]
        pos[o["name"]] = np.array(g[0:3])
        rot[o["name"]] = quat_matrix(*g[3:7])
    # Offsets in the parent's frame and local rotations, from the stance.
    offset = {}
    local = {}
    for n in names:
        p = parent[n]
        if p in rot:
            offset[n] = rot[p].T @ (pos[n] - pos[p])
            local[n] = rot[p].T @ rot[n]
        else:
            offset[n] = pos[n]
            local[n] = rot[n]

    def pose():
        for n in names:
            p = parent[n]
            if p in rot:
                rot[n] = rot[p] @ local[n]
                pos[n] = pos[p] + rot[p] @ offset[n]
            else:
                rot[n] = local[n]
                pos[n] = offset[n]

    # Face +Z: the right hip to the left hip points along +X.
    left, right = config["hips"]
    across = pos[left] - pos[right]
    across[1] = 0.0
    turn = swing(across, np.array([1.0, 0.0, 0.0]))
    roots = [n for n in names if parent[n] not in rot]
    for n in roots:
        local[n] = turn @ local[n]
        offset[n] = turn @ offset[n]
    pose()

    aligns = read_aligns(config["structure_files"])
    aim_of = {joint: (node, aim) for node, joint, aim in config["tags"]}
    for n in names:
        if n not in aim_of or aim_of[n][1] is None:
            continue
        node, aim = aim_of[n]
        bone = pos[aim] - pos[n]
        if np.linalg.norm(bone) < 1e-9:
            continue
        rot[n] = swing(bone, aligns[node]) @ rot[n]
        p = parent[n]
        local[n] = rot[p].T @ rot[n] if p in rot else rot[n]
        pose()

    out = [
        "# Generated by examples/templates/pose_for_tagging.py: the capture in its structure's",
        "# rest pose, tagged, saved as a tag template. Run from the build folder.",
        "NewScene()",
        f'ImportBVH("{config["bvh"]}", "{model}")',
        'SetValue("PlayControl.Current", 1)',
    ]
    for n in names:
        if n.endswith("_End"):
            continue
        out.append(f'RemoveAllAnimation("{model}.{n}")')
        out.append(f'SetValue("{model}.{n}.kine.local.rotorder", 0)')
        for axis, value in zip(("rotx", "roty", "rotz"), euler_xyz(local[n])):
            out.append(f'SetValue("{model}.{n}.kine.local.{axis}", {value:.9g})')
        if n in roots:
            for axis, value in zip(("posx", "posy", "posz"), offset[n]):
                out.append(f'SetValue("{model}.{n}.kine.local.{axis}", {value:.9g})')
    out.append(f'SetStructureFile("{model}", "{config["structure"]}")')
    for node, joint, _ in config["tags"]:
        out.append(f'SetTagValue("{model}", "{node}", "{joint}", 1)')
    out.append(f'ApplyTagsToRig("{model}")')
    out.append(f'SaveTagTemplateFile("{model}", "../data/Addons/Trevalin/Data/TagTemplates/{config["template"]}")')
    print("\n".join(out))


if __name__ == "__main__":
    main()
