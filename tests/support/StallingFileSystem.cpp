// A read-only FUSE file system that serves a folder, and hangs on command: every request waits for
// a shared lock of the control file (flock(2)), so whoever holds the exclusive one stalls it all.
// Writes "r" to standard output once it is mounted.
//
//     stalling_fs FOLDER MOUNT_POINT CONTROL_FILE
#define FUSE_USE_VERSION 312

#include <dirent.h>
#include <fcntl.h>
#include <fuse.h>
#include <sys/file.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace {

std::string folder;
std::string controlFile;

std::string served(const char* path) {
  return folder + path;
}

/// Returns when nobody wants the file system to hang.
void passControl() {
  // An open of its own: locks belong to opened files, and requests run side by side.
  const int control = ::open(controlFile.c_str(), O_RDONLY | O_CLOEXEC);
  if (control < 0) return;
  while (::flock(control, LOCK_SH) != 0 && errno == EINTR) {
  }
  ::close(control);
}

int orError(long result) {
  return result < 0 ? -errno : static_cast<int>(result);
}

void* start(fuse_conn_info*, fuse_config* config) {
  // The kernel asks again each time.
  config->attr_timeout = 0;
  config->entry_timeout = 0;
  config->negative_timeout = 0;
  if (::write(STDOUT_FILENO, "r", 1) != 1) ::_exit(1);
  return nullptr;
}

int getAttributes(const char* path, struct stat* status, fuse_file_info*) {
  passControl();
  return orError(::lstat(served(path).c_str(), status));
}

int readLink(const char* path, char* target, std::size_t size) {
  passControl();
  const ssize_t length = ::readlink(served(path).c_str(), target, size - 1);
  if (length < 0) return -errno;
  target[length] = '\0';
  return 0;
}

int readFolder(const char* path, void* entries, fuse_fill_dir_t add, off_t, fuse_file_info*,
               fuse_readdir_flags) {
  passControl();
  DIR* const opened = ::opendir(served(path).c_str());
  if (opened == nullptr) return -errno;
  while (const dirent* const entry = ::readdir(opened)) {
    struct stat status {};
    status.st_ino = entry->d_ino;
    status.st_mode = static_cast<mode_t>(DTTOIF(entry->d_type));
    add(entries, entry->d_name, &status, 0, fuse_fill_dir_flags{});
  }
  ::closedir(opened);
  return 0;
}

int openFile(const char* path, fuse_file_info* file) {
  passControl();
  const int descriptor = ::open(served(path).c_str(), file->flags | O_CLOEXEC);
  if (descriptor < 0) return -errno;
  file->fh = static_cast<std::uint64_t>(descriptor);
  return 0;
}

int readFile(const char*, char* bytes, std::size_t size, off_t offset, fuse_file_info* file) {
  passControl();
  return orError(::pread(static_cast<int>(file->fh), bytes, size, offset));
}

int closeFile(const char*, fuse_file_info* file) {
  return orError(::close(static_cast<int>(file->fh)));
}

int fileSystemStatus(const char* path, struct statvfs* status) {
  passControl();
  return orError(::statvfs(served(path).c_str(), status));
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 4) return 2;
  folder = arguments[1];
  controlFile = arguments[3];
  fuse_operations operations{};
  operations.init = start;
  operations.getattr = getAttributes;
  operations.readlink = readLink;
  operations.readdir = readFolder;
  operations.open = openFile;
  operations.read = readFile;
  operations.release = closeFile;
  operations.statfs = fileSystemStatus;
  std::string name = arguments[0];
  std::string foreground = "-f";
  std::string options = "-osubtype=stalling";
  char* fuseArguments[] = {name.data(), foreground.data(), options.data(), arguments[2], nullptr};
  return ::fuse_main(4, fuseArguments, &operations, nullptr);
}
