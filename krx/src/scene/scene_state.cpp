// The active scene's life cycle and the process-wide stamps the evaluation compares with.
#include "runtime/scene_state.h"

#include <utility>

#include "scene/evaluation.h"
#include "scene/items.h"
#include "scene/scene_edit.h"

namespace KRX::rt {

namespace {

uint64_t g_revision_counter = 1;
uint64_t g_structure = 1;
uint64_t g_topology = 1;
int g_eval_depth = 0;
bool g_bump_pending = false;

uint64_t NextRevision() { return ++g_revision_counter; }

// Runs _Term of every initialised operator of the scene, then marks everything it holds
// deleted, so that handles kept on the old scene's items become invalid.
void RetireScene(Scene& scene) {
  std::vector<std::shared_ptr<OperatorItem>> initialised;
  auto collect = [&initialised](Item& item) {
    if (auto* op = dynamic_cast<OperatorItem*>(&item); op && op->initialised) {
      initialised.push_back(std::static_pointer_cast<OperatorItem>(op->shared_from_this()));
    }
    return true;
  };
  if (scene.root) ForEachItem(*scene.root, collect);
  if (scene.project) ForEachItem(*scene.project, collect);
  for (const auto& op : scene.pending_operators) collect(*op);
  for (const auto& op : initialised) TerminateOperator(*op);

  auto retire = [](Item& item) {
    item.deleted = true;
    return true;
  };
  if (scene.root) ForEachItem(*scene.root, retire);
  if (scene.project) ForEachItem(*scene.project, retire);
  for (const auto& op : scene.pending_operators) ForEachItem(*op, retire);
}

}  // namespace

Scene& ActiveScene() {
  // Never destroyed: plug-ins may still reach the scene while statics are torn down.
  static Scene* scene = new Scene(MakeEmptyScene());
  return *scene;
}

Scene MakeEmptyScene() {
  Scene scene;
  scene.root = MakeObjectItem(nullptr, ClassID::Model, L"#model", CString(L"Scene_Root"));
  scene.project = MakeProjectItem();
  scene.revision = NextRevision();
  return scene;
}

void ReplaceScene(Scene&& scene) {
  Scene& active = ActiveScene();
  RetireScene(active);
  Scene old = std::move(active);
  active = std::move(scene);
  active.revision = NextRevision();
  active.eval = SceneEvalState();
  BumpTopology();
  // `old` goes here, with every item only it still held.
}

void ResetScene() { ReplaceScene(MakeEmptyScene()); }

void BumpRevision() {
  if (g_eval_depth > 0) {
    g_bump_pending = true;
    return;
  }
  Scene& scene = ActiveScene();
  scene.revision = NextRevision();
  scene.eval.evaluated = false;
}

void BumpStructure() {
  ++g_structure;
  BumpRevision();
}

void BumpTopology() {
  ++g_topology;
  BumpStructure();
}

uint64_t StructureStamp() { return g_structure; }
uint64_t TopologyStamp() { return g_topology; }

int& EvalDepth() { return g_eval_depth; }

void FlushPendingRevision() {
  if (g_eval_depth != 0) return;
  if (g_bump_pending) {
    g_bump_pending = false;
    ActiveScene().eval.pending_invalidations.clear();
    BumpRevision();
  }
  FlushInvalidations();
}

}  // namespace KRX::rt
