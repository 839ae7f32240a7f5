#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// A one-connection-at-a-time HTTP server on 127.0.0.1 for reporter tests. Each request is
// answered as `behaviour` says for its index: a status code, a dropped connection, or a status
// after a delay. Bodies are recorded with the status they were answered with.
class QENLoopbackHTTPServer {
 public:
  struct Answer {
    int status = 200;                    // 0: close the connection without answering
    std::chrono::milliseconds delay{0};  // before answering
  };
  struct Request {
    std::string body;
    int status;
  };

  explicit QENLoopbackHTTPServer(std::function<Answer(int requestIndex)> behaviour)
      : behaviour_(std::move(behaviour)) {
    listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ::bind(listener_, reinterpret_cast<sockaddr*>(&address), length);
    ::listen(listener_, 16);
    ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
  }

  ~QENLoopbackHTTPServer() {
    stopping_ = true;
    ::shutdown(listener_, SHUT_RDWR);
    ::close(listener_);
    thread_.join();
  }

  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/api/v2/spans"; }

  std::vector<Request> requests() const {
    const std::lock_guard guard(mutex_);
    return requests_;
  }

 private:
  void serve() {
    for (int index = 0; !stopping_; ++index) {
      const int connection = ::accept(listener_, nullptr, nullptr);
      if (connection < 0) {
        return;
      }
      const std::string body = readBody(connection);
      const Answer answer = behaviour_(index);
      std::this_thread::sleep_for(answer.delay);  // the injected slowness itself
      if (answer.status != 0) {
        const std::string response = "HTTP/1.1 " + std::to_string(answer.status) +
                                     " X\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
        [[maybe_unused]] const auto sent =
            ::send(connection, response.data(), response.size(), MSG_NOSIGNAL);
      }
      ::close(connection);
      const std::lock_guard guard(mutex_);
      requests_.push_back({body, answer.status});
    }
  }

  static std::string readBody(int connection) {
    std::string data;
    char buffer[65536];
    std::size_t headerEnd = std::string::npos;
    std::size_t contentLength = 0;
    for (;;) {
      if (headerEnd != std::string::npos && data.size() >= headerEnd + 4 + contentLength) {
        return data.substr(headerEnd + 4, contentLength);
      }
      const ssize_t received = ::recv(connection, buffer, sizeof buffer, 0);
      if (received <= 0) {
        return {};
      }
      data.append(buffer, static_cast<std::size_t>(received));
      if (headerEnd == std::string::npos &&
          (headerEnd = data.find("\r\n\r\n")) != std::string::npos) {
        const std::size_t field = data.find("Content-Length: ");
        contentLength = field < headerEnd ? std::stoul(data.substr(field + 16)) : 0;
      }
    }
  }

  std::function<Answer(int)> behaviour_;
  int listener_ = -1;
  int port_ = 0;
  std::atomic<bool> stopping_{false};
  mutable std::mutex mutex_;
  std::vector<Request> requests_;
  std::thread thread_;
};
