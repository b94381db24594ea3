// How a command that plays comes to its end: by itself, by a key or by a signal, in bounded time.
#pragma once

#include <chrono>

namespace velorin {

class AudioEngine;
class SerialQueue;

/// Stops the engine on its queue and then ends the main loop. If the engine is still busy after
/// the grace, with a file on a share that does not answer, say, the process ends all the same with
/// exit code 1 and the terminal in order; the system then frees the device. Main thread.
void stopEngineAndLoop(AudioEngine& engine, SerialQueue& engineQueue);

/// Longest time from a request to end to the end.
inline constexpr std::chrono::milliseconds kShutdownGrace{1800};

}  // namespace velorin
