#include "ProgramLoop.h"

#include <unistd.h>

#include "Console.h"
#include "Options.h"
#include "Terminal.h"
#include "engine/AudioEngine.h"
#include "foundation/MainThread.h"
#include "foundation/SerialQueue.h"

namespace velorin {

void stopEngineAndLoop(AudioEngine& engine, SerialQueue& engineQueue) {
  MainThread::instance().postAfter(kShutdownGrace, [] {
    terminal::RawMode::restoreForExit();
    reportError("the engine does not stop: a file or device does not answer; ended without it");
    ::_exit(kExitFailure);
  });
  engineQueue.async([&engine] {
    engine.stop();
    MainThread::instance().stop();
  });
}

}  // namespace velorin
