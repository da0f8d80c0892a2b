#include "tests/support/OnlineWorld.h"

#include <algorithm>

namespace tests {

std::vector<std::string> OnlineServer::Asked() const {
    std::vector<std::string> paths;
    for (const HttpRequest& request : server_.Requests())
        paths.push_back(request.target);
    return paths;
}

HttpAnswer OnlineServer::Answer(const HttpRequest& request) {
    std::unique_lock lock(mutex_);
    const auto found = handlers_.find(request.target);
    if (found == handlers_.end()) return {.status = 404, .body = "no such thing"};
    const HttpServer::Handler handler = found->second;
    lock.unlock();
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

}  // namespace tests
