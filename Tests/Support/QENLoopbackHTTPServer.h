#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "QENGzip.h"

// A one-connection-at-a-time HTTP collector on 127.0.0.1 for reporter tests. Each request is
// answered as `behaviour` says for its index, with a status or a fault. Every request is recorded
// before it is answered, so a test that has seen the reporter finish sees every request. A gzip
// body is recorded inflated, as a collector reads it.
class QENLoopbackHTTPServer {
 public:
  enum class Fault {
    kNone,     // answers with the status
    kReset,    // resets the connection without answering
    kStall,    // never answers; waits until the client gives up
    kTrickle,  // answers with the status one byte at a time
  };
  struct Answer {
    int status = 200;
    Fault fault = Fault::kNone;
    const char* retryAfter = nullptr;  // a Retry-After header's value
  };
  struct Request {
    std::string body;
    Answer answer;
    std::string headers;  // the request line and header fields, as sent
    bool hasHeader(const std::string& field) const {
      return headers.find("\r\n" + field + "\r\n") != std::string::npos;
    }
    // Whether the client was told its batch was taken.
    bool acknowledged() const {
      return (answer.fault == Fault::kNone || answer.fault == Fault::kTrickle) &&
             answer.status >= 200 && answer.status < 300;
    }
  };

  explicit QENLoopbackHTTPServer(std::function<Answer(int requestIndex)> behaviour)
      : behaviour_(std::move(behaviour)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ::bind(listener_, reinterpret_cast<sockaddr*>(&address), length);
    ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    ::listen(listener_, 16);
    thread_ = std::thread([this] { serve(); });
  }

  ~QENLoopbackHTTPServer() {
    stopping_ = true;
    ::shutdown(listener_, SHUT_RDWR);
    ::shutdown(connection_.load(), SHUT_RDWR);  // ends a stall
    thread_.join();
    ::close(listener_);
  }

  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/api/v2/spans"; }

  std::vector<Request> requests() const {
    const std::lock_guard guard(mutex_);
    return requests_;
  }

  // How often each span id (as Zipkin v2 JSON writes it) came in a batch the server acknowledged.
  std::map<std::string, int> acknowledgedSpanIds() const {
    std::map<std::string, int> counts;
    for (const auto& request : requests()) {
      if (request.acknowledged()) {
        for (const auto& span : nlohmann::json::parse(request.body))
          ++counts[span["id"]];
      }
    }
    return counts;
  }

  // Returns once `count` requests have been recorded.
  void waitForRequests(std::size_t count) const {
    std::unique_lock lock(mutex_);
    recorded_.wait(lock, [&] { return requests_.size() >= count; });
  }

 private:
  void serve() {
    for (int index = 0; !stopping_; ++index) {
      const int connection = ::accept(listener_, nullptr, nullptr);
      if (connection < 0)
        return;
      connection_ = connection;
      auto [headers, body] = readRequest(connection);
      if (!headers.empty()) {  // else the client went away mid-request
        if (headers.find("\r\nContent-Encoding: gzip\r\n") != std::string::npos)
          body = QENGzip::decompress(body).value_or("not gzip");
        const Answer answer = behaviour_(index);
        {
          const std::lock_guard guard(mutex_);
          requests_.push_back({body, answer, headers});
        }
        recorded_.notify_all();
        respond(connection, answer);
      }
      connection_ = -1;
      ::close(connection);
    }
  }

  void respond(int connection, const Answer& answer) const {
    const std::string statusLine = "HTTP/1.1 " + std::to_string(answer.status) + " X\r\n";
    const std::string response =
        statusLine +
        (answer.retryAfter ? "Retry-After: " + std::string(answer.retryAfter) + "\r\n" : "") +
        "Content-Length: 0\r\nConnection: close\r\n\r\n";
    char ignored[256];
    const linger abortive{1, 0};
    switch (answer.fault) {
      case Fault::kNone:
        return send(connection, response);
      case Fault::kReset:
        ::setsockopt(connection, SOL_SOCKET, SO_LINGER, &abortive, sizeof abortive);
        return;
      case Fault::kStall:
        while (!stopping_ && ::recv(connection, ignored, sizeof ignored, 0) > 0) {
        }
        return;
      case Fault::kTrickle:
        for (const char byte : response) {
          send(connection, std::string(1, byte));
          std::this_thread::sleep_for(std::chrono::milliseconds(1));  // the slowness itself
        }
        return;
    }
  }

  static void send(int connection, const std::string& data) {
    [[maybe_unused]] const auto sent = ::send(connection, data.data(), data.size(), MSG_NOSIGNAL);
  }

  // The header block (ending in "\r\n") and the body; nothing if the client left.
  static std::pair<std::string, std::string> readRequest(int connection) {
    std::string data;
    char buffer[65536];
    std::size_t headerEnd = std::string::npos;
    std::size_t contentLength = 0;
    while (headerEnd == std::string::npos || data.size() < headerEnd + 4 + contentLength) {
      const ssize_t received = ::recv(connection, buffer, sizeof buffer, 0);
      if (received <= 0)
        return {};
      data.append(buffer, static_cast<std::size_t>(received));
      if (headerEnd == std::string::npos &&
          (headerEnd = data.find("\r\n\r\n")) != std::string::npos) {
        const std::size_t field = data.find("Content-Length: ");
        contentLength = field < headerEnd ? std::stoul(data.substr(field + 16)) : 0;
      }
    }
    return {data.substr(0, headerEnd + 2), data.substr(headerEnd + 4, contentLength)};
  }

  std::function<Answer(int)> behaviour_;
  int listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
  int port_ = 0;
  std::atomic<int> connection_{-1};
  std::atomic<bool> stopping_{false};
  mutable std::mutex mutex_;
  mutable std::condition_variable recorded_;
  std::vector<Request> requests_;
  std::thread thread_;
};
