#include "tests/support/HttpServer.h"

#include <arpa/inet.h>
#include <openssl/evp.h>
#include <poll.h>
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

// False if the peer goes away meanwhile, or the server ends.
bool Wait(int socket, std::chrono::milliseconds time) {
    pollfd peer{socket, POLLRDHUP, 0};
    return time.count() <= 0 || poll(&peer, 1, static_cast<int>(time.count())) == 0;
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
    thread_ = std::jthread([this] { Run(); });
}

HttpServer::~HttpServer() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
        for (const int socket : {listener_, served_})
            shutdown(socket, SHUT_RDWR);
    }
    thread_.join();
    close(listener_);
}

void HttpServer::Run() {
    while (!stopping_) {
        const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0) continue;
        std::unique_lock lock(mutex_);
        served_ = socket;
        if (stopping_) shutdown(socket, SHUT_RDWR);
        lock.unlock();
        const std::optional<HttpRequest> request = ReceiveRequest(socket);
        lock.lock();
        if (request) requests_.push_back(*request);
        lock.unlock();
        if (request) Answer(socket, *request);
        // Closing with unread input would reset the connection and take the answer from the peer.
        shutdown(socket, SHUT_WR);
        lock.lock();
        served_ = -1;
        close(socket);
    }
}

void HttpServer::Answer(int socket, const HttpRequest& request) {
    const HttpAnswer answer = handler_(request);
    if (!Wait(socket, answer.delay) || answer.drop) return;
    if (!answer.raw.empty()) return static_cast<void>(SendAll(socket, answer.raw));
    if (!SendAll(socket, Head(answer)) || request.method == "HEAD") return;
    const std::string_view body = answer.body;
    if (answer.endless) {
        const std::string piece = body.empty() ? std::string(65536, 'x') : answer.body;
        std::ostringstream chunk;
        chunk << std::hex << piece.size() << "\r\n" << piece << "\r\n";
        while (SendAll(socket, chunk.str()))
            continue;
    }
    const std::size_t first = answer.pauseInBody.count() > 0 ? body.size() / 2 : body.size();
    if (SendAll(socket, body.substr(0, first)) && Wait(socket, answer.pauseInBody)) SendAll(socket, body.substr(first));
}

}  // namespace tests
