// Opening the library's file, and what happens when it cannot be opened.
#pragma once

#include <filesystem>
#include <memory>

#include "library/ConnectionQueue.h"

namespace velorin {

/// Opens the file, which is made with its folder where it is missing, and migrates it.
///
/// A file that is damaged, or that a migration fails on, is set aside as "<file>.corrupt-<seconds
/// since 1970>" and an empty library takes its place; its -wal and -shm files are removed, the file
/// itself never is. Trouble that says nothing about the file (a full disk, missing permission, a
/// read-only folder, another program that keeps it locked, no memory) leaves everything where it
/// is.
///
/// Throws VelorinDatabaseError when there is no library in the end. Blocks; any thread but the
/// render thread.
std::shared_ptr<ConnectionQueue> openLibraryFile(const std::filesystem::path& file);

/// What openLibraryForReading throws when there is no such file.
struct NoLibraryError : VelorinDatabaseError {
  using VelorinDatabaseError::VelorinDatabaseError;
};

/// Opens the file only to look at it: it is neither made nor migrated, changed or set aside. Works
/// while another process writes. Throws NoLibraryError or VelorinDatabaseError, also for a file of
/// another time, which first wants to be migrated. Blocks; any thread but the render thread.
std::shared_ptr<ConnectionQueue> openLibraryForReading(const std::filesystem::path& file);

/// "library.sqlite" in the program's data folder.
std::filesystem::path defaultLibraryFile();

}  // namespace velorin
