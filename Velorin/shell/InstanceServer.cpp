#include "shell/InstanceServer.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <set>
#include <utility>

#include "foundation/Log.h"
#include "foundation/MainThread.h"

namespace velorin {
namespace {

namespace asio = boost::asio;
using asio::local::stream_protocol;
using boost::system::error_code;

/// The machine is out of descriptors: what runs may give some back meanwhile.
constexpr std::chrono::seconds kAcceptPause{1};

bool isOfThisUser(int socket) {
  ucred peer{};
  socklen_t size = sizeof(peer);
  return ::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
         peer.uid == ::geteuid();
}

/// One request and its answer. Its pending operations keep it alive.
class Connection : public std::enable_shared_from_this<Connection> {
 public:
  using Ended = std::function<void(const std::shared_ptr<Connection>&)>;

  Connection(stream_protocol::socket socket, InstanceServer::Handler handler, Ended ended)
      : _socket(std::move(socket)),
        _deadline(_socket.get_executor()),
        _handler(std::move(handler)),
        _ended(std::move(ended)) {}

  void start() {
    limitTime();
    read();
  }

  void close() {
    error_code ignored;
    _deadline.cancel();
    _socket.close(ignored);
    _handler = {};
    if (auto ended = std::exchange(_ended, {})) ended(shared_from_this());
  }

 private:
  void limitTime() {
    _deadline.expires_after(InstanceServer::kPatience);
    _deadline.async_wait([self = shared_from_this()](const error_code& error) {
      if (!error) self->close();
    });
  }

  void read() {
    _socket.async_read_some(asio::buffer(_bytes), [self = shared_from_this()](
                                                      const error_code& error, std::size_t count) {
      if (error) return self->close();
      self->_line.append(self->_bytes.data(), count);
      if (const std::size_t end = self->_line.find('\n', self->_line.size() - count);
          end != std::string::npos) {
        self->_line.resize(end);
        return self->answerRequest();
      }
      if (self->_line.size() > kLongestInstanceLine) return self->close();
      self->read();
    });
  }

  void answerRequest() {
    _deadline.cancel();
    auto request = decodeRequest(std::exchange(_line, {}));
    if (!request) return write({false, request.error().text});
    const InstanceServer::Handler handler = _handler;  // a copy: it may close us
    handler(std::move(request).value(), [weak = weak_from_this()](const InstanceAnswer& answer) {
      if (const auto self = weak.lock()) self->write(answer);
    });
  }

  void write(const InstanceAnswer& answer) {
    if (!_socket.is_open() || !_answer.empty()) return;
    _answer = encode(answer);
    limitTime();
    asio::async_write(
        _socket, asio::buffer(_answer),
        [self = shared_from_this()](const error_code&, std::size_t) { self->close(); });
  }

  stream_protocol::socket _socket;
  asio::steady_timer _deadline;
  InstanceServer::Handler _handler;
  Ended _ended;
  std::array<char, 4096> _bytes{};
  std::string _line;
  std::string _answer;
};

}  // namespace

struct InstanceServer::Impl : std::enable_shared_from_this<Impl> {
  Impl(FileDescriptor listener, Handler theHandler)
      : acceptor(MainThread::instance().context()),
        pause(MainThread::instance().context()),
        handler(std::move(theHandler)) {
    acceptor.assign(stream_protocol(), listener.release());
  }

  void accept() {
    acceptor.async_accept(
        [self = shared_from_this()](const error_code& error, stream_protocol::socket socket) {
          if (error == asio::error::operation_aborted || !self->acceptor.is_open()) return;
          if (error) return self->acceptLater();
          self->take(std::move(socket));
          self->accept();
        });
  }

  void acceptLater() {
    pause.expires_after(kAcceptPause);
    pause.async_wait([self = shared_from_this()](const error_code& error) {
      if (!error) self->accept();
    });
  }

  void take(stream_protocol::socket socket) {
    if (connections.size() >= kMostConnections) return;
    if (!isOfThisUser(socket.native_handle())) {
      return log::line("⚠️ Another user tried to command the player: refused");
    }
    const auto connection = std::make_shared<Connection>(
        std::move(socket), handler,
        [weak = weak_from_this()](const std::shared_ptr<Connection>& ended) {
          if (const auto self = weak.lock()) self->connections.erase(ended);
        });
    connections.insert(connection);
    connection->start();
  }

  void end() {
    error_code ignored;
    acceptor.close(ignored);
    pause.cancel();
    for (const auto& connection : std::exchange(connections, {})) connection->close();
  }

  stream_protocol::acceptor acceptor;
  asio::steady_timer pause;
  const Handler handler;
  std::set<std::shared_ptr<Connection>> connections;
};

InstanceServer::InstanceServer(FileDescriptor listener, Handler handler)
    : _impl(std::make_shared<Impl>(std::move(listener), std::move(handler))) {
  _impl->accept();
}

InstanceServer::~InstanceServer() {
  _impl->end();
}

}  // namespace velorin
