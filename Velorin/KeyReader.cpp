#include "KeyReader.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <cerrno>

#include "foundation/MainThread.h"

namespace velorin {

struct KeyReader::Impl : std::enable_shared_from_this<Impl> {
  Impl(int descriptor, std::function<void(Key)> onPressed)
      : stream(MainThread::instance().context()), pressed(std::move(onPressed)) {
    // Waiting makes the open file non-blocking, for everyone who shares it: the shell, and our
    // own standard output. So the terminal is opened anew.
    const char* name = ::ttyname(descriptor);
    const int own = name == nullptr ? -1 : ::open(name, O_RDONLY | O_NOCTTY | O_CLOEXEC);
    if (own >= 0) stream.assign(own);
  }

  void wait() {
    stream.async_wait(boost::asio::posix::descriptor_base::wait_read,
                      [self = shared_from_this()](const boost::system::error_code& error) {
                        if (!error) self->readAvailable();
                      });
  }

  void readAvailable() {
    std::array<char, 64> bytes;
    const ssize_t count = ::read(stream.native_handle(), bytes.data(), bytes.size());
    if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) return;
    if (count < 0) return wait();
    for (const Key key : parser.feed({bytes.data(), static_cast<std::size_t>(count)})) {
      if (pressed) pressed(key);
    }
    if (stream.is_open()) wait();
  }

  boost::asio::posix::stream_descriptor stream;
  std::function<void(Key)> pressed;
  KeyParser parser;
};

KeyReader::KeyReader(int descriptor, std::function<void(Key)> pressed)
    : _impl(std::make_shared<Impl>(descriptor, std::move(pressed))) {
  if (_impl->stream.is_open()) _impl->wait();
}

KeyReader::~KeyReader() {
  _impl->pressed = nullptr;
  boost::system::error_code ignored;
  _impl->stream.close(ignored);
}

}  // namespace velorin
