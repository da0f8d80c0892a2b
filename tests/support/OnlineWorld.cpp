#include "tests/support/OnlineWorld.h"

#include <algorithm>

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

OnlineWorld::OnlineWorld(const std::vector<std::string>& crls, const std::vector<std::string>& responders) {
    const auto urlOf = [this](const std::string& path) { return path.starts_with("/") ? server.Url(path) : path; };
    CertificateSpec spec = PersonSpec("Person", 2);
    std::ranges::transform(crls, std::back_inserter(spec.crlUrls), urlOf);
    std::ranges::transform(responders, std::back_inserter(spec.ocspUrls), urlOf);
    leaf = Issue(spec, ca);
    world.AddCrl(MakeCrl(root));
    world.network.allowed = true;
}

platform::ErrorCode OnlineWorld::FreshVerdict(const Profile& profile) const {
    std::filesystem::remove_all(profile.Folder() / "cache/norvik");
    return Verdict();
}

CrlSpec OnlineWorld::Listing() const {
    return {.revoked = {{leaf.Serial(), std::time(nullptr) - 2 * kDay, 1}}};
}

}  // namespace tests
