#pragma once
// A chain of root, authority and person whose addresses lead to a server of the test's own.

#include "tests/support/ChainWorld.h"
#include "tests/support/HttpServer.h"

namespace tests {

// What the server answers, by path; other paths get status 404.
class OnlineServer {
  public:
    void Serve(const std::string& path, HttpServer::Handler handler) {
        const std::lock_guard lock(mutex_);
        handlers_[path] = std::move(handler);
    }
    void Serve(const std::string& path, HttpAnswer answer) {
        Serve(path, [answer = std::move(answer)](const HttpRequest&) { return answer; });
    }
    void Serve(const std::string& path, ByteView body) {
        Serve(path, HttpAnswer{.body = std::string(platform::AsText(body))});
    }
    [[nodiscard]] std::string Url(const std::string& path) const { return server_.Url(path); }
    [[nodiscard]] std::vector<std::string> Asked() const {  // paths, in order
        std::vector<std::string> paths;
        for (const HttpRequest& request : server_.Requests())
            paths.push_back(request.target);
        return paths;
    }

  private:
    HttpAnswer Answer(const HttpRequest& request) {
        std::unique_lock lock(mutex_);
        const auto found = handlers_.find(request.target);
        if (found == handlers_.end()) return {.status = 404, .body = "no such thing"};
        const HttpServer::Handler handler = found->second;
        lock.unlock();
        return handler(request);
    }
    std::mutex mutex_;
    std::map<std::string, HttpServer::Handler> handlers_;
    HttpServer server_{[this](const HttpRequest& request) { return Answer(request); }};
};

struct OnlineWorld {
    // The person's certificate names these addresses of CRLs and of OCSP responders; paths are those of the server.
    explicit OnlineWorld(std::vector<std::string> crls, std::vector<std::string> responders = {}) {
        for (auto* paths : {&crls, &responders})
            for (std::string& path : *paths)
                if (path.starts_with("/")) path = server.Url(path);
        CertificateSpec spec = PersonSpec("Person", 2);
        spec.crlUrls = std::move(crls);
        spec.ocspUrls = std::move(responders);
        leaf = Issue(spec, ca);
        world.AddCrl(MakeCrl(root));
        world.network.allowed = true;
    }

    OnlineServer server;
    Certificate root = Issue(AuthoritySpec("Root", 0));
    Certificate ca = Issue(AuthoritySpec("Authority", 1), root);
    Certificate leaf;
    // Trusts the root, knows the authority and that it is not revoked, and may ask.
    ChainWorld world{root, {ca}};

    [[nodiscard]] platform::ErrorCode Verdict() const { return world.VerdictWithCrls(leaf); }
    // Nobody remembers an answer.
    [[nodiscard]] platform::ErrorCode FreshVerdict(const Profile& profile) const {
        std::filesystem::remove_all(profile.Folder() / "cache/norvik");
        return Verdict();
    }
    [[nodiscard]] CrlSpec Listing() const { return {.revoked = {{leaf.Serial(), std::time(nullptr) - 2 * kDay, 1}}}; }
};

}  // namespace tests
