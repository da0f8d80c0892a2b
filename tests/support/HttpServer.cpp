#include "tests/support/HttpServer.h"

#include <arpa/inet.h>
#include <openssl/evp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace tests {
namespace {

constexpr std::size_t kLargestRequest = 256u << 20;

bool SendAll(int socket, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

bool ReceiveSome(int socket, std::string& text) {
    std::array<char, 65536> buffer{};
    const ssize_t got = recv(socket, buffer.data(), buffer.size(), 0);
    if (got <= 0 || text.size() > kLargestRequest) return false;
    text.append(buffer.data(), static_cast<std::size_t>(got));
    return true;
}

std::string LowerCase(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

HttpRequest ParseHead(const std::string& head) {
    HttpRequest request;
    std::istringstream lines(head);
    lines >> request.method >> request.target;
    for (std::string line; std::getline(lines, line);) {
        const auto colon = line.find(':');
        if (colon == std::string::npos) continue;
        line.erase(line.find_last_not_of("\r ") + 1);
        const auto start = std::min(line.find_first_not_of(' ', colon + 1), line.size());
        request.headers[LowerCase(line.substr(0, colon))] = line.substr(start);
    }
    return request;
}

// Empty when the peer went away in the middle.
std::optional<HttpRequest> ReceiveRequest(int socket) {
    std::string text;
    std::size_t headEnd = std::string::npos;
    while ((headEnd = text.find("\r\n\r\n")) == std::string::npos)
        if (!ReceiveSome(socket, text) || text.front() == '\x16') return std::nullopt;  // a TLS greeting
    HttpRequest request = ParseHead(text.substr(0, headEnd));
    const std::size_t size = std::strtoull(request.headers["content-length"].c_str(), nullptr, 10);
    if (request.headers.contains("expect") && !SendAll(socket, "HTTP/1.1 100 Continue\r\n\r\n")) return std::nullopt;
    text.erase(0, headEnd + 4);
    while (text.size() < size)
        if (!ReceiveSome(socket, text)) return std::nullopt;
    request.body = text.substr(0, size);
    return request;
}

std::string Head(const HttpAnswer& answer) {
    std::ostringstream head;
    head << "HTTP/1.1 " << answer.status << " Test\r\nConnection: close\r\n";
    if (!answer.contentType.empty()) head << "Content-Type: " << answer.contentType << "\r\n";
    for (const auto& [name, value] : answer.headers)
        head << name << ": " << value << "\r\n";
    if (!answer.endless) head << "Content-Length: " << answer.claimedLength.value_or(answer.body.size());
    head << (answer.endless ? "Transfer-Encoding: chunked\r\n\r\n" : "\r\n\r\n");
    return head.str();
}

}  // namespace

std::optional<std::string> HttpRequest::Credentials() const {
    const auto header = headers.find("authorization");
    constexpr std::string_view kScheme = "Basic ";
    if (header == headers.end() || !header->second.starts_with(kScheme)) return std::nullopt;
    const std::string text = header->second.substr(kScheme.size());
    const auto* encoded = reinterpret_cast<const unsigned char*>(text.data());
    std::vector<unsigned char> decoded(text.size());
    const auto size = EVP_DecodeBlock(decoded.data(), encoded, static_cast<int>(text.size()));
    if (size < 0) return std::nullopt;
    return std::string(decoded.begin(), decoded.begin() + size - std::count(text.begin(), text.end(), '='));
}

HttpServer::HttpServer(Handler handler, std::uint16_t port) : handler_(std::move(handler)) {
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    socklen_t size = sizeof address;
    auto* native = reinterpret_cast<sockaddr*>(&address);
    if (listener_ < 0 || bind(listener_, native, size) != 0 || listen(listener_, 64) != 0 ||
        getsockname(listener_, native, &size) != 0) {
        if (listener_ >= 0) close(listener_);
        throw std::runtime_error("no port for the HTTP server");
    }
    port_ = ntohs(address.sin_port);
    acceptor_ = std::jthread([this] { Accept(); });
}

HttpServer::~HttpServer() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
        shutdown(listener_, SHUT_RDWR);
        for (const int socket : open_)
            shutdown(socket, SHUT_RDWR);
    }
    ended_.notify_all();
    acceptor_.join();
    threads_.clear();
    close(listener_);
}

void HttpServer::Accept() {
    while (!stopping_) {
        const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0) {
            if (!stopping_) std::this_thread::sleep_for(std::chrono::milliseconds(1));
            continue;
        }
        const std::lock_guard lock(mutex_);
        if (stopping_) {
            close(socket);
            return;
        }
        if (open_.empty()) threads_.clear();  // they have nothing left to do
        open_.push_back(socket);
        threads_.emplace_back([this, socket] { Serve(socket); });
    }
}

void HttpServer::Serve(int socket) {
    if (const std::optional<HttpRequest> request = ReceiveRequest(socket)) {
        {
            const std::lock_guard lock(mutex_);
            requests_.push_back(*request);
        }
        Answer(socket, *request);
        // Closing with unread input would reset the connection and take the answer from the peer.
        shutdown(socket, SHUT_WR);
    }
    const std::lock_guard lock(mutex_);
    std::erase(open_, socket);
    close(socket);
}

void HttpServer::Answer(int socket, const HttpRequest& request) {
    const HttpAnswer answer = [&] {
        const std::lock_guard lock(handlerMutex_);
        return handler_(request);
    }();
    if (!Wait(answer.delay) || answer.drop) return;
    if (!answer.raw.empty()) return static_cast<void>(SendAll(socket, answer.raw));
    if (!SendAll(socket, Head(answer)) || request.method == "HEAD") return;
    if (answer.endless) return SendEndless(socket, answer.body);
    const std::string_view body = answer.body;
    const std::size_t first = answer.pauseInBody.count() > 0 ? body.size() / 2 : body.size();
    if (SendAll(socket, body.substr(0, first)) && Wait(answer.pauseInBody)) SendAll(socket, body.substr(first));
}

void HttpServer::SendEndless(int socket, const std::string& body) {
    const std::string piece = body.empty() ? std::string(65536, 'x') : body;
    std::ostringstream chunk;
    chunk << std::hex << piece.size() << "\r\n" << piece << "\r\n";
    while (!stopping_ && SendAll(socket, chunk.str()))
        continue;
}

bool HttpServer::Wait(std::chrono::milliseconds time) {
    if (time.count() <= 0) return true;
    std::unique_lock lock(mutex_);
    return !ended_.wait_for(lock, time, [this] { return stopping_.load(); });
}

}  // namespace tests
