// One player for each user: who it is, and how the others reach it.
//
// The player holds a lock on a file in the runtime folder for as long as it lives, and listens on a
// socket beside it. The lock, which the kernel gives back however the player ends, decides; a
// socket that a killed player left behind is replaced by the next one.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>

#include "foundation/FileDescriptor.h"
#include "shell/InstanceMessage.h"

namespace velorin {

/// Any thread; these block for as long as they say.
namespace instance {

/// Why the player cannot be reached or become, and what to do; one line.
struct Failure {
  std::string text;
};

/// The right to be the player, while it lives.
struct Lock {
  FileDescriptor file;
};

/// Nobody is there to be told.
struct NoPlayer {};

/// How long a player that starts or ends may leave another start waiting, and how long it may take
/// to answer.
struct Patience {
  std::chrono::milliseconds forPlayer{6000};
  std::chrono::milliseconds forAnswer{15000};
};

/// Makes this process the player, or else hands the request to the one that is. Of any number of
/// processes that ask at the same time one gets the lock, and the others reach it.
std::variant<Lock, InstanceAnswer, Failure> becomeOrAsk(const std::filesystem::path& directory,
                                                        const InstanceRequest& request,
                                                        Patience patience = {});

/// Hands the request to the player.
std::variant<NoPlayer, InstanceAnswer, Failure> ask(const std::filesystem::path& directory,
                                                    const InstanceRequest& request,
                                                    Patience patience = {});

/// For the one that holds the lock: a socket that listens, for processes of this user alone.
std::variant<FileDescriptor, Failure> listen(const std::filesystem::path& directory);
/// Takes the socket's name away; who connects from then on finds nobody.
void removeSocket(const std::filesystem::path& directory) noexcept;

}  // namespace instance
}  // namespace velorin
