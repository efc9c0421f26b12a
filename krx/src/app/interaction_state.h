// The scripted-interaction state shared by the files of krx/src/app: the answer queue,
// the records of what was shown and the observers. One per process.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "runtime/interaction.h"

namespace KRX::rt {

struct InteractionState {
  std::deque<Answer> queue;
  int mismatches = 0;
  std::vector<MessageBoxRecord> message_boxes;
  std::vector<PickRecord> picks;
  std::vector<FileBrowserRecord> file_browsers;
  std::vector<std::string> notes;
  std::vector<CString> files_for_edit;
  InteractionHooks hooks;
};

InteractionState& Interaction();

}  // namespace KRX::rt
