// Saving a tagged rig's motion to a motion file, as the save command does it.
#pragma once

#include <cstdint>

#include "krx/krx.h"

namespace kavor {

// Rebuilds the rig's structure and rest data from what its tagging stored on it and writes
// its motion over the frames `start` to `end` (both included) to `path` (see
// kavor_file.h). A model without a stored structure or with a model map that does not read
// is reported in a warning box. Returns whether the file was written.
bool SaveKavorMotion(const KRX::Model& source, const KRX::CString& path, int32_t start,
                     int32_t end);

}  // namespace kavor
