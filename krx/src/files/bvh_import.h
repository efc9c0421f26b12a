// Importing a BVH file as an animated rig: a model holding one null per joint, named and
// parented as the joints, with the joints' offsets as local translations and the motion as
// function curves on the local parameters; "Play Control" takes the file's range and rate.
#pragma once

#include <string>

#include "files/bvh_file.h"
#include "krx/krx.h"

namespace KRX::rt::files {

// Builds the rig of a parsed file below the scene root; the model is named `model_name`
// (made unique). Frame 1 of the scene plays the file's first frame; keys are linear, one
// per frame, held as compact curves that take the file's columns over (the file is left
// without its motion). An End Site becomes a null named "<joint>_End".
Model BuildBvhRig(BvhFile&& file, const CString& model_name);

// The host command ImportBVH("file.bvh", "Name"): returns the model's name, or false with
// an error logged ("ImportBVH: <file>: line N: ...") when the file cannot be read; nothing
// is added to the scene then. A file holding fewer or more frames than it announces is
// imported with the frames it holds, and a warning that says which.
void RegisterBvhImportCommand();

}  // namespace KRX::rt::files
