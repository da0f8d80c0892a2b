#pragma once
// An HTTP/1.1 server on loopback, at a port of its own, that answers what a test tells it and remembers what it was
// asked. One request a connection, one connection after the other.
//
//   tests::HttpServer server([](const tests::HttpRequest& request) { return tests::HttpAnswer{.body = "hello"}; });
//   Fetch(server.Url("/crl"));

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace tests {

struct HttpRequest {
    std::string method, target;                  // target as it stood in the request line
    std::map<std::string, std::string> headers;  // names in lower case
    std::string body;

    // "user:password" of basic authorisation, decoded; nothing if it was not given.
    [[nodiscard]] std::optional<std::string> Credentials() const;
};

struct HttpAnswer {
    int status = 200;
    std::string contentType = "application/octet-stream";
    std::vector<std::pair<std::string, std::string>> headers = {};
    std::string body = {};
    std::chrono::milliseconds delay{0};               // before the first byte
    bool drop = false;                                // closes the connection without an answer
    bool endless = false;                             // repeats the body without an end, chunked
    std::optional<std::uint64_t> claimedLength = {};  // a Content-Length that is not the body's
    std::chrono::milliseconds pauseInBody{0};         // after the first half of the body
    std::string raw = {};                             // sent in place of an answer

    static HttpAnswer Redirect(const std::string& location, int status = 302) {
        return {.status = status, .headers = {{"Location", location}}};
    }
};

class HttpServer {
  public:
    using Handler = std::function<HttpAnswer(const HttpRequest&)>;

    // The handler is called on the server's thread. A port of 0 takes a free one.
    explicit HttpServer(Handler handler, std::uint16_t port = 0);
    // Breaks off what is going on and joins the thread.
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    [[nodiscard]] std::uint16_t Port() const { return port_; }
    [[nodiscard]] std::string Url(const std::string& path = "/") const {
        return "http://127.0.0.1:" + std::to_string(port_) + path;
    }
    [[nodiscard]] std::vector<HttpRequest> Requests() const {
        const std::lock_guard lock(mutex_);
        return requests_;
    }

  private:
    void Run();
    void Answer(int socket, const HttpRequest& request);

    Handler handler_;
    int listener_ = -1, served_ = -1;  // sockets; served_ is -1 between connections
    std::uint16_t port_ = 0;
    mutable std::mutex mutex_;
    std::atomic<bool> stopping_ = false;
    std::vector<HttpRequest> requests_;
    std::jthread thread_;
};

}  // namespace tests
