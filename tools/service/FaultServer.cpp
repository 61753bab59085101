#include "FaultServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <utility>

#include "ReferenceService.h"
#include "platform/internal/HttpText.h"

namespace zelnora_tools {
namespace {

constexpr std::size_t kMaxHeadBytes = 64 * 1024;
constexpr std::size_t kMaxBodyBytes = 16 * 1024 * 1024;
const std::string kFaultFreeBody = R"({"status":"ok"})";

constexpr std::pair<FaultMode, std::string_view> kModeNames[] = {
    {FaultMode::none, "none"},
    {FaultMode::reset, "reset"},
    {FaultMode::closeMidBody, "close-mid-body"},
    {FaultMode::stall, "stall"},
    {FaultMode::garbageStatus, "garbage-status"},
    {FaultMode::hugeBody, "huge-body"},
    {FaultMode::slowDrip, "slow-drip"},
};

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::string answerHead(std::size_t contentLength) {
  return "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: " +
         std::to_string(contentLength) + "\r\n\r\n";
}

// One accepted connection: buffered reads and writes that give up as soon as the server stops.
class Peer {
 public:
  Peer(int fd, int stopFd) : fd_(fd), stopFd_(stopFd) {}

  // Waits for `events` on the socket; false when the server stops first or after `timeoutMs`.
  bool waitFor(short events, int timeoutMs = -1) {
    for (;;) {
      pollfd watched[2] = {{fd_, events, 0}, {stopFd_, POLLIN, 0}};
      const int ready = ::poll(watched, 2, timeoutMs);
      if (ready < 0 && errno == EINTR) continue;
      if (ready <= 0 || watched[1].revents != 0) return false;
      return true;
    }
  }

  // More bytes into the buffer; false at end of stream, error or stop.
  bool fill() {
    if (!waitFor(POLLIN)) return false;
    char chunk[16 * 1024];
    const ssize_t got = ::recv(fd_, chunk, sizeof chunk, 0);
    if (got <= 0) return false;
    buffer_.append(chunk, static_cast<std::size_t>(got));
    return true;
  }

  // The request head up to and including its blank line.
  std::optional<std::string> readHead() {
    for (;;) {
      if (auto end = buffer_.find("\r\n\r\n"); end != std::string::npos) {
        std::string head = buffer_.substr(0, end + 4);
        buffer_.erase(0, end + 4);
        return head;
      }
      if (buffer_.size() > kMaxHeadBytes || !fill()) return std::nullopt;
    }
  }

  std::optional<std::string> readBody(std::size_t length) {
    while (buffer_.size() < length) {
      if (!fill()) return std::nullopt;
    }
    std::string body = buffer_.substr(0, length);
    buffer_.erase(0, length);
    return body;
  }

  bool send(std::string_view bytes) {
    while (!bytes.empty()) {
      if (!waitFor(POLLOUT)) return false;
      const ssize_t sent = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (sent < 0 && errno == EINTR) continue;
      if (sent <= 0) return false;
      bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
  }

  // Holds the connection until the client closes it or the server stops.
  void waitForClientToLeave() {
    char sink[4096];
    while (waitFor(POLLIN)) {
      if (::recv(fd_, sink, sizeof sink, 0) <= 0) return;
    }
  }

  void resetConnection() {
    const linger abortive{1, 0};
    ::setsockopt(fd_, SOL_SOCKET, SO_LINGER, &abortive, sizeof abortive);
  }

 private:
  int fd_;
  int stopFd_;
  std::string buffer_;
};

// Parses "METHOD TARGET HTTP/1.1" and the header lines; the body length from Content-Length.
std::optional<RecordedRequest> parseHead(std::string_view head, std::size_t& contentLength) {
  RecordedRequest request;
  contentLength = 0;
  auto lineEnd = head.find("\r\n");
  std::string_view requestLine = head.substr(0, lineEnd);
  const auto firstSpace = requestLine.find(' ');
  const auto secondSpace = requestLine.find(' ', firstSpace + 1);
  if (firstSpace == std::string_view::npos || secondSpace == std::string_view::npos) {
    return std::nullopt;
  }
  request.method = std::string(requestLine.substr(0, firstSpace));
  std::string_view target = requestLine.substr(firstSpace + 1, secondSpace - firstSpace - 1);
  const auto question = target.find('?');
  request.path = std::string(target.substr(0, question));
  if (question != std::string_view::npos) request.query = std::string(target.substr(question + 1));
  head.remove_prefix(lineEnd + 2);
  while (!head.empty() && !head.starts_with("\r\n")) {
    lineEnd = head.find("\r\n");
    std::string_view line = head.substr(0, lineEnd);
    head.remove_prefix(std::min(head.size(), lineEnd + 2));
    const auto colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    std::string_view name = trimmed(line.substr(0, colon));
    std::string_view value = trimmed(line.substr(colon + 1));
    if (platform::http::equalsIgnoringCase(name, "Content-Length")) {
      auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), contentLength);
      if (error != std::errc() || contentLength > kMaxBodyBytes) return std::nullopt;
    }
    request.headers.emplace_back(std::string(name), std::string(value));
  }
  return request;
}

}  // namespace

std::optional<FaultMode> faultModeNamed(std::string_view name) {
  for (const auto& [mode, text] : kModeNames) {
    if (text == name) return mode;
  }
  return std::nullopt;
}

std::string_view faultModeName(FaultMode mode) {
  for (const auto& [candidate, text] : kModeNames) {
    if (candidate == mode) return text;
  }
  return "none";
}

struct FaultServer::ConnectionThread {
  std::thread thread;
  std::atomic<bool> finished{false};
};

FaultServer::FaultServer(FaultServerOptions options, RequestObserver observer)
    : options_(options), observer_(std::move(observer)) {}

FaultServer::~FaultServer() { stop(); }

int FaultServer::start() {
  if (listener_ >= 0) return -1;
  listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  int yes = 1;
  ::setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(options_.port));
  socklen_t length = sizeof address;
  if (listener_ < 0 || ::bind(listener_, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
      ::listen(listener_, 512) != 0 || ::pipe2(stopPipe_, O_CLOEXEC) != 0) {
    if (listener_ >= 0) ::close(listener_);
    listener_ = -1;
    return -1;
  }
  ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
  acceptor_ = std::thread([this] { acceptLoop(); });
  return ntohs(address.sin_port);
}

void FaultServer::stop() {
  if (!acceptor_.joinable()) return;
  // The pipe stays readable from now on: every poll in every connection wakes up.
  [[maybe_unused]] const ssize_t woken = ::write(stopPipe_[1], "x", 1);
  acceptor_.join();
  std::list<std::unique_ptr<ConnectionThread>> remaining;
  {
    platform::MutexLock lock(mutex_);
    remaining.swap(connections_);
  }
  for (auto& connection : remaining) connection->thread.join();
  ::close(listener_);
  ::close(stopPipe_[0]);
  ::close(stopPipe_[1]);
  listener_ = -1;
}

void FaultServer::acceptLoop() {
  for (;;) {
    pollfd watched[2] = {{listener_, POLLIN, 0}, {stopPipe_[0], POLLIN, 0}};
    if (::poll(watched, 2, -1) < 0) continue;
    if (watched[1].revents != 0) return;
    const int fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) continue;
    reapFinished();
    auto connection = std::make_unique<ConnectionThread>();
    ConnectionThread* raw = connection.get();
    raw->thread = std::thread([this, fd, raw] {
      serve(fd);
      ::close(fd);
      raw->finished = true;
    });
    platform::MutexLock lock(mutex_);
    connections_.push_back(std::move(connection));
  }
}

void FaultServer::reapFinished() {
  std::list<std::unique_ptr<ConnectionThread>> done;
  {
    platform::MutexLock lock(mutex_);
    for (auto it = connections_.begin(); it != connections_.end();) {
      auto next = std::next(it);
      if ((*it)->finished) done.splice(done.end(), connections_, it);
      it = next;
    }
  }
  for (auto& connection : done) connection->thread.join();
}

// Reads requests one after another; each gets the chosen wrong answer. Modes whose answer leaves
// the connection usable (huge body, slow drip) keep it alive for the next request.
void FaultServer::serve(int fd) {
  Peer peer(fd, stopPipe_[0]);
  for (;;) {
    std::optional<std::string> head = peer.readHead();
    if (!head) return;
    std::size_t contentLength = 0;
    std::optional<RecordedRequest> request = parseHead(*head, contentLength);
    if (!request) return;
    std::optional<std::string> body = peer.readBody(contentLength);
    if (!body) return;
    request->body = std::move(*body);
    if (observer_) observer_(*request);

    switch (options_.mode) {
      case FaultMode::none:
        if (!peer.send(answerHead(kFaultFreeBody.size()) + kFaultFreeBody)) return;
        break;
      case FaultMode::reset: peer.resetConnection(); return;
      case FaultMode::closeMidBody: {
        const std::string announced = kFaultFreeBody + std::string(kFaultFreeBody.size(), ' ');
        peer.send(answerHead(announced.size()) + announced.substr(0, announced.size() / 2));
        return;
      }
      case FaultMode::stall: peer.waitForClientToLeave(); return;
      case FaultMode::garbageStatus: peer.send("ZELNORA \x01\x02 NOT-HTTP\r\n\r\n"); return;
      case FaultMode::hugeBody: {
        if (!peer.send(answerHead(options_.hugeBodyBytes))) return;
        static const std::string chunk(64 * 1024, 'z');
        for (std::size_t left = options_.hugeBodyBytes; left > 0;) {
          const std::size_t piece = std::min(left, chunk.size());
          if (!peer.send(std::string_view(chunk).substr(0, piece))) return;
          left -= piece;
        }
        break;
      }
      case FaultMode::slowDrip: {
        const std::string answer = answerHead(kFaultFreeBody.size()) + kFaultFreeBody;
        const int intervalMs = static_cast<int>(options_.dripInterval.count());
        for (char byte : answer) {
          if (!peer.send(std::string_view(&byte, 1))) return;
          if (intervalMs > 0) {  // a pause that ends early only when the server stops
            pollfd stopWatch{stopPipe_[0], POLLIN, 0};
            if (::poll(&stopWatch, 1, intervalMs) > 0) return;
          }
        }
        break;
      }
    }
  }
}

}  // namespace zelnora_tools
