#include "tests/support/OnlineWorld.h"

namespace tests {

void OnlineServer::Serve(const std::string& path, HttpServer::Handler handler) {
    const std::lock_guard lock(mutex_);
    handlers_[path] = std::move(handler);
}

void OnlineServer::Serve(const std::string& path, HttpAnswer answer) {
    Serve(path, [answer = std::move(answer)](const HttpRequest&) { return answer; });
}

void OnlineServer::Serve(const std::string& path, ByteView body) {
    Serve(path, HttpAnswer{.body = std::string(platform::AsText(body))});
}

std::vector<std::string> OnlineServer::Asked() const {
    std::vector<std::string> paths;
    for (const HttpRequest& request : server_.Requests())
        paths.push_back(request.target);
    return paths;
}

HttpAnswer OnlineServer::Answer(const HttpRequest& request) {
    HttpServer::Handler handler;
    {
        const std::lock_guard lock(mutex_);
        const auto found = handlers_.find(request.target);
        if (found == handlers_.end()) return {.status = 404, .body = "no such thing"};
        handler = found->second;
    }
    return handler(request);
}

OnlineWorld::OnlineWorld(const std::function<void(CertificateSpec&, const OnlineServer&)>& addresses) {
    CertificateSpec spec = PersonSpec("Person", 2);
    addresses(spec, server);
    leaf = Issue(spec, ca);
    world.AddCrl(MakeCrl(root));
    world.network.allowed = true;
}

CrlSpec OnlineWorld::Listing(int reason) const {
    return {.revoked = {{leaf.Serial(), std::time(nullptr) - 2 * kDay, reason}}};
}

}  // namespace tests
