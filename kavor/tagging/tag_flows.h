// The work behind the tag page and its commands: opening and preparing the page, picking
// and setting an object for a node, applying the tagging (tags, rest data, maps, glue)
// and cleaning it away again.
#pragma once

#include <string>

#include "kavor/structure/model_structure.h"
#include "krx/krx.h"

namespace kavor {

inline constexpr const wchar_t* kTagPage = L"TagPPG";

// The structure name of a structure file choice: a bare name, a file name or a full path
// ("/data/Structures/Humanoid.structure" gives "Humanoid").
std::string StructureNameOf(const std::string& choice);

// The model's tag page, added (through its definition) when it has none.
KRX::CustomProperty GetOrAddTagPage(const KRX::Model& model);
// The page's four fixed parameters: StructureTag, StructureFile, TemplateFile, dirty.
void DefineTagPageParameters(KRX::CustomProperty& page);

// Opens the tag page of `model` or, when it is invalid, of the first selected character.
bool OpenTagPage(const KRX::Model& model);

// Gives the page one node parameter per structure node and per decomposition sub-control,
// dropping the old ones.
bool PrepareTagPage(const KRX::Model& model, const ModelStructure& structure);

// Lets the user pick the object for `node_name` and sets it with the "SetTagValue" command.
void PickTagObject(const KRX::CustomProperty& page, const KRX::Model& model,
                   const std::string& node_name);

// Checks and sets the object for a node (mode 1 control, 2 extraction) against the
// structure stored on the model; marks the page dirty. A refused value leaves the page as
// it was.
bool SetTagValue(const KRX::Model& model, const std::string& node_name,
                 const std::string& object_name, int mode);

// From the model's tags and the structure as read from its file: the rest data, the model
// map, the stored structure and the glue. The rig is measured in the pose it stands in.
// `progress` (optional) steps once after each of the five parts.
class ScopedProgressBar;
void WriteRigSetup(const KRX::Model& model, const ModelStructure& structure,
                   ScopedProgressBar* progress);

// Gives the tag page the structure `structure_file` (a structure name or file): stores the
// structure on the model and prepares the node parameters when the structure changes, and
// rebuilds the page's layout when the page is shown. Returns whether the structure loaded.
bool BuildTagPageLayout(const KRX::Model& model, const std::string& structure_file);

// Reaction to the page's structure choice: the chosen structure file becomes the page's
// structure (or, when it already is, the layout is rebuilt).
void ChooseStructureFile(const KRX::CustomProperty& page);

// Enables the apply buttons when there is something to apply and each node's select
// button when its objects exist; asks the host to redraw the page.
void RefreshTagPage(const KRX::CustomProperty& page, KRX::PPGEventContext& context);

// Applies the tag page: checks it, writes the tags and everything derived from them.
// False only without a page or a loadable structure; a tagging that fails its checks is
// reported and nothing is applied.
bool ApplyTagsToRig(const KRX::Model& model);

// Empties the page and removes the retarget setup (ops::RemoveRetargetSetup), tags, glue,
// map and plot page; the stored structure and the page stay.
bool CleanTagsFromRig(const KRX::Model& model);

}  // namespace kavor
