#!/usr/bin/env python3
"""Writes walker.bvh: a small humanoid (22 joints, centimetres, +Y up, facing +Z) walking
forward for two strides, made from sine waves. The first frame is the rest T-pose, so
the take can be tagged on frame 1.

With --strider, writes strider.bvh instead: the character the walk is retargeted onto,
standing in its rest T-pose for one frame. It has other proportions (longer legs, a
shorter back, shorter arms), other joint names and another hierarchy (a root joint on the
ground above the pelvis, the legs hanging from the pelvis, the arms from the top of the
spine).

    python3 make_walker.py [--strider] [OUT.bvh]
"""
import math
import sys

# name, parent, offset (x, y, z)
JOINTS = [
    ("Hips", None, (0, 95, 0)),
    ("LeftUpLeg", "Hips", (9, -4, 0)), ("LeftLeg", "LeftUpLeg", (0, -42, 1)),
    ("LeftFoot", "LeftLeg", (0, -41, -1)), ("LeftToeBase", "LeftFoot", (0, -6, 12)),
    ("RightUpLeg", "Hips", (-9, -4, 0)), ("RightLeg", "RightUpLeg", (0, -42, 1)),
    ("RightFoot", "RightLeg", (0, -41, -1)), ("RightToeBase", "RightFoot", (0, -6, 12)),
    ("Spine", "Hips", (0, 10, 0)), ("Spine1", "Spine", (0, 12, -1)), ("Spine2", "Spine1", (0, 12, 0)),
    ("Neck", "Spine2", (0, 14, 0)), ("Head", "Neck", (0, 10, 1)),
    ("LeftShoulder", "Spine2", (3, 10, 0)), ("LeftArm", "LeftShoulder", (15, 0, 0)),
    ("LeftForeArm", "LeftArm", (28, 0, 0)), ("LeftHand", "LeftForeArm", (25, 0, 0)),
    ("RightShoulder", "Spine2", (-3, 10, 0)), ("RightArm", "RightShoulder", (-15, 0, 0)),
    ("RightForeArm", "RightArm", (-28, 0, 0)), ("RightHand", "RightForeArm", (-25, 0, 0)),
]
END_SITES = {"Head": (0, 15, 0), "LeftToeBase": (0, 0, 5), "RightToeBase": (0, 0, 5),
             "LeftHand": (10, 0, 0), "RightHand": (-10, 0, 0)}
STRIDER = [
    ("root", None, (0, 0, 0)),
    ("pelvis", "root", (0, 104, 0)),
    ("thigh_l", "pelvis", (10, -5, 0)), ("calf_l", "thigh_l", (0, -46, 1)),
    ("foot_l", "calf_l", (0, -44, -1)), ("ball_l", "foot_l", (0, -7, 13)),
    ("thigh_r", "pelvis", (-10, -5, 0)), ("calf_r", "thigh_r", (0, -46, 1)),
    ("foot_r", "calf_r", (0, -44, -1)), ("ball_r", "foot_r", (0, -7, 13)),
    ("spine_01", "pelvis", (0, 8, 0)), ("spine_02", "spine_01", (0, 10, -1)),
    ("spine_03", "spine_02", (0, 10, 0)),
    ("neck_01", "spine_03", (0, 13, 0)), ("head", "neck_01", (0, 9, 1)),
    ("clavicle_l", "spine_03", (3, 9, 0)), ("upperarm_l", "clavicle_l", (13, 0, 0)),
    ("lowerarm_l", "upperarm_l", (24, 0, 0)), ("hand_l", "lowerarm_l", (21, 0, 0)),
    ("clavicle_r", "spine_03", (-3, 9, 0)), ("upperarm_r", "clavicle_r", (-13, 0, 0)),
    ("lowerarm_r", "upperarm_r", (-24, 0, 0)), ("hand_r", "lowerarm_r", (-21, 0, 0)),
]
STRIDER_END_SITES = {"head": (0, 14, 0), "ball_l": (0, 0, 5), "ball_r": (0, 0, 5),
                     "hand_l": (9, 0, 0), "hand_r": (-9, 0, 0)}
FRAMES = 60
FRAME_TIME = 1.0 / 30.0


def rotations(name, phase):
    """Z, X, Y rotation in degrees of a joint at a walk phase (radians)."""
    s, c = math.sin(phase), math.cos(phase)
    side = -1.0 if name.startswith("Right") else 1.0
    swing = s * side  # legs and arms swing in opposition
    if name.endswith("UpLeg"):
        return (0.0, -25.0 * swing, 0.0)
    if name.endswith("Leg"):
        return (0.0, 30.0 * max(0.0, -math.sin(phase * side + 0.6)), 0.0)
    if name.endswith("Foot"):
        return (0.0, -10.0 * swing, 0.0)
    if name.endswith("Arm") and "Fore" not in name:
        return (-70.0 * side, 20.0 * swing, 0.0)  # arms down from the T-pose
    if name.endswith("ForeArm"):
        return (0.0, 0.0, 15.0 * side * (1.0 + c) * 0.5)
    if name == "Spine1":
        return (0.0, 0.0, 4.0 * s)
    if name == "Hips":
        return (3.0 * s, 0.0, 5.0 * s)
    return (0.0, 0.0, 0.0)


def write_hierarchy(out, joints, end_sites):
    children = {}
    for name, parent, _ in joints:
        children.setdefault(parent, []).append(name)
    offsets = {name: offset for name, _, offset in joints}

    def block(name, depth):
        pad = "\t" * depth
        kind = "ROOT" if depth == 0 else "JOINT"
        out.write(f"{pad}{kind} {name}\n{pad}{{\n")
        x, y, z = offsets[name]
        out.write(f"{pad}\tOFFSET {x:.4f} {y:.4f} {z:.4f}\n")
        channels = "6 Xposition Yposition Zposition" if depth == 0 else "3"
        out.write(f"{pad}\tCHANNELS {channels} Zrotation Xrotation Yrotation\n")
        for child in children.get(name, []):
            block(child, depth + 1)
        if name in end_sites:
            ex, ey, ez = end_sites[name]
            out.write(f"{pad}\tEnd Site\n{pad}\t{{\n{pad}\t\tOFFSET {ex:.4f} {ey:.4f} {ez:.4f}\n{pad}\t}}\n")
        out.write(f"{pad}}}\n")

    out.write("HIERARCHY\n")
    block(joints[0][0], 0)


def write_strider(out):
    write_hierarchy(out, STRIDER, STRIDER_END_SITES)
    values = [0.0] * (3 + 3 * len(STRIDER))
    out.write(f"MOTION\nFrames: 1\nFrame Time: {FRAME_TIME:.7f}\n")
    out.write(" ".join(f"{v:.4f}" for v in values) + "\n")


def write(out):
    write_hierarchy(out, JOINTS, END_SITES)
    out.write(f"MOTION\nFrames: {FRAMES}\nFrame Time: {FRAME_TIME:.7f}\n")
    for f in range(FRAMES):
        # Frame 0 is the rest pose; the walk eases in over the first few frames.
        weight = min(1.0, f / 8.0)
        phase = 2.0 * math.pi * f / 30.0
        values = [0.0, 95.0 - 2.0 * weight * abs(math.sin(phase)), 110.0 * f / 30.0 * weight]
        for name, _, _ in JOINTS:
            values.extend(weight * a for a in rotations(name, phase))
        out.write(" ".join(f"{v:.4f}" for v in values) + "\n")


if __name__ == "__main__":
    args = sys.argv[1:]
    strider = "--strider" in args
    args = [a for a in args if a != "--strider"]
    path = args[0] if args else ("strider.bvh" if strider else "walker.bvh")
    with open(path, "w") as handle:
        (write_strider if strider else write)(handle)
