#include "plugins/scene_events.h"

#include <gtest/gtest.h>

#include "krx/plugins/plugin_test_support.h"
#include "runtime/callbacks.h"

namespace KRX::rt {
namespace {

class SceneEventTest : public PluginFixture {};

int g_open_scene_calls = 0;

CStatus CountOpenScene(CRef&) {
  ++g_open_scene_calls;
  return CStatus::OK;
}

TEST_F(SceneEventTest, ReachEveryModuleOnce) {
  LoadTestPlugin();
  g_open_scene_calls = 0;
  RegisterInProcessCallback(kOpenSceneCallback, &CountOpenScene);

  FireSceneEvent(false);
  EXPECT_EQ(Notes(), std::vector<std::string>{"new scene, source valid=no"});
  EXPECT_EQ(g_open_scene_calls, 0);

  ClearLog();
  FireSceneEvent(true);
  // The module's own callback and the in-process one both run, each once.
  EXPECT_EQ(Notes(), std::vector<std::string>{"open scene"});
  EXPECT_EQ(g_open_scene_calls, 1);

  {  // The same function reached by two routes still runs once.
    RegisterInProcessCallback(kNewSceneCallback, FindCallbackSymbol(kNewSceneCallback));
    ClearLog();
    FireSceneEvent(false);
    EXPECT_EQ(Notes().size(), 1u);
  }
}

}  // namespace
}  // namespace KRX::rt
