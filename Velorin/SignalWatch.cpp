#include "SignalWatch.h"

#include <unistd.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <csignal>

#include "Terminal.h"
#include "foundation/MainThread.h"

namespace velorin {

struct SignalWatch::Impl : std::enable_shared_from_this<Impl> {
  explicit Impl(Handlers theHandlers)
      : handlers(std::move(theHandlers)),
        stops(MainThread::instance().context(), SIGINT, SIGTERM, SIGHUP),
        suspends(MainThread::instance().context(), SIGTSTP) {}

  void waitForStop() {
    stops.async_wait([self = shared_from_this()](const boost::system::error_code& error, int) {
      if (error) return;
      if (self->stopping) {
        terminal::RawMode::restoreForExit();
        ::_exit(1);
      }
      self->stopping = true;
      self->waitForStop();
      if (self->handlers.stop) self->handlers.stop();
    });
  }

  void waitForSuspend() {
    suspends.async_wait([self = shared_from_this()](const boost::system::error_code& error, int) {
      if (error) return;
      if (self->handlers.suspend) self->handlers.suspend();
      ::raise(SIGSTOP);  // returns when the process is continued
      if (self->handlers.resume) self->handlers.resume();
      self->waitForSuspend();
    });
  }

  Handlers handlers;
  boost::asio::signal_set stops;
  boost::asio::signal_set suspends;
  bool stopping = false;
};

SignalWatch::SignalWatch(Handlers handlers) : _impl(std::make_shared<Impl>(std::move(handlers))) {
  _impl->waitForStop();
  _impl->waitForSuspend();
}

SignalWatch::~SignalWatch() {
  _impl->handlers = {};
  _impl->stops.cancel();
  _impl->suspends.cancel();
}

}  // namespace velorin
