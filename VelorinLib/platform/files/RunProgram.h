// Runs a short program to its end.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace velorin {

/// Starts the program found on the search path, without input and without output, and waits. True
/// when it ended with 0; one that is still running after the patience is killed. False, too, when
/// there is no such program. Any thread but the main thread and the render thread.
bool runProgram(const std::vector<std::string>& arguments, std::chrono::milliseconds patience);

}  // namespace velorin
