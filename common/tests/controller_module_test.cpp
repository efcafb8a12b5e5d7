#include <kelto/common/controller_module.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

using kelto::common::ControllerModule;
using kelto::common::ParameterizedObject;
using kelto::common::StatedObject;

// Records its hooks, and whether the object's lock was held while they ran.
class Recorder : public ControllerModule {
 public:
  Recorder() : ControllerModule("reader") {}

  using ControllerModule::_AssertState;

  // What a reading operation of a derived controller does: busy for its length, running after.
  void Read() {
    boost::unique_lock<boost::mutex> lock(_GetMutex());
    _AssertState(OS_RUNNING);
    object_state = OS_BUSY;
    calls.push_back("read");
    object_state = OS_RUNNING;
  }
  void MarkBusy() { object_state = OS_BUSY; }

  std::vector<std::string> calls;
  std::vector<bool> running_flags;
  bool fail_start = false;
  bool lock_was_held = true;

 protected:
  void _Initialize() override { Record("_Initialize"); }
  void _Start() override {
    Record("_Start");
    if (fail_start) {
      throw std::runtime_error("device missing");
    }
  }
  void _Pause() override { Record("_Pause"); }
  void _Stop() override { Record("_Stop"); }
  void _SetRuntimeParameters(ParameterizedObject::Parameters const&, const bool& running) override {
    Record("_SetRuntimeParameters");
    running_flags.push_back(running);
  }

 private:
  void Record(const std::string& call) {
    calls.push_back(call);
    // try_lock succeeds only if nobody holds the lock: then the hook ran without it.
    if (_GetMutex().try_lock()) {
      _GetMutex().unlock();
      lock_was_held = false;
    }
  }
};

std::string AssertText(const Recorder& recorder, StatedObject::eObjectState state) {
  try {
    recorder._AssertState(state);
  } catch (const std::logic_error& error) {
    return error.what();
  }
  return "";
}

TEST(ControllerModuleStates, StartInitializesThenStartsStopReturnsAndHooksRunLocked) {
  Recorder recorder;
  ControllerModule::Parameters parameters;
  EXPECT_EQ(recorder.GetObjectState(), StatedObject::OS_STOPPED);
  recorder.SetParameters(parameters);
  recorder.Start();
  EXPECT_EQ(recorder.GetObjectState(), StatedObject::OS_RUNNING);
  recorder.SetParameters(parameters);
  recorder.Read();
  recorder.Stop();
  EXPECT_EQ(recorder.GetObjectState(), StatedObject::OS_STOPPED);
  EXPECT_EQ(recorder.calls,
            (std::vector<std::string>{"_SetRuntimeParameters", "_Initialize", "_Start",
                                      "_SetRuntimeParameters", "read", "_Stop"}));
  // The runtime hook learns whether the controller runs.
  EXPECT_EQ(recorder.running_flags, (std::vector<bool>{false, true}));
  EXPECT_TRUE(recorder.lock_was_held);
}

TEST(ControllerModuleStates, AssertStateNamesBothStatesAndRefusedTransitionsChangeNothing) {
  Recorder recorder;
  EXPECT_EQ(AssertText(recorder, StatedObject::OS_STOPPED), "");
  EXPECT_EQ(AssertText(recorder, StatedObject::OS_RUNNING),
            "controller \"reader\" is stopped, it must be running");
  EXPECT_THROW(recorder.Read(), std::logic_error);
  recorder.Start();
  EXPECT_EQ(AssertText(recorder, StatedObject::OS_STOPPED),
            "controller \"reader\" is running, it must be stopped");
  recorder.MarkBusy();
  EXPECT_EQ(AssertText(recorder, StatedObject::OS_RUNNING),
            "controller \"reader\" is busy, it must be running");

  // Refused or failed transitions leave the state as it was.
  Recorder fresh;
  EXPECT_THROW(fresh.Pause(), std::logic_error);  // only from running
  fresh.fail_start = true;
  EXPECT_THROW(fresh.Start(), std::runtime_error);
  EXPECT_EQ(fresh.GetObjectState(), StatedObject::OS_STOPPED);
  fresh.fail_start = false;
  fresh.Start();
  EXPECT_THROW(fresh.Start(), std::logic_error);
  EXPECT_EQ(fresh.GetObjectState(), StatedObject::OS_RUNNING);
  fresh.Pause();
  EXPECT_EQ(fresh.GetObjectState(), StatedObject::OS_STOPPED);
  fresh.Start();
  EXPECT_EQ(fresh.calls, (std::vector<std::string>{"_Initialize", "_Start", "_Initialize", "_Start",
                                                   "_Pause", "_Initialize", "_Start"}));
}

}  // namespace
