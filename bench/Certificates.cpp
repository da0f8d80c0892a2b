// A store of 2,000 certificates through NorvikCertInfoJson, beside what it cannot do without: reading the same files,
// decoding them with the crypto library and hashing them twice. Both in one process that did so before, and at the
// first call of a fresh process. The ratios are what counts.
//
// As `norvik-bench-certificates --first describe|parse` it is such a fresh process: prints microseconds and the growth
// of its largest resident set in KiB.

#include <benchmark/benchmark.h>
#include <openssl/sha.h>
#include <sys/resource.h>

#include <chrono>
#include <iostream>
#include <sstream>
#include <thread>

#include "norvik/norvik.h"
#include "tests/support/Pki.h"
#include "tests/support/Process.h"

namespace {

constexpr std::size_t kCertificates = 2000;
constexpr const char* kStore = "Many";
const char* self = nullptr;

[[noreturn]] void Fail(const std::string& reason) {
    std::cerr << reason << "\n";
    std::exit(1);
}

std::filesystem::path StoreFolder() {
    return std::filesystem::path(std::getenv("XDG_DATA_HOME")) / "norvik/stores" / kStore;
}

// What an authority issues: names in Bulgarian, addresses of a CRL and a responder, usages.
tests::CertificateSpec SpecOf(std::size_t number) {
    return {.subject = {{"C", "BG", V_ASN1_PRINTABLESTRING},
                        {"O", "Фирма за удостоверяване АД"},
                        {"organizationIdentifier", "VATBG-123456789"},
                        {"CN", "Иван Петров Иванов " + std::to_string(number)},
                        {"serialNumber", "PNOBG-" + std::to_string(8'000'000 + number), V_ASN1_PRINTABLESTRING},
                        {"emailAddress", "ivan@example.bg", V_ASN1_IA5STRING}},
            .key = tests::TestKey(tests::KeyType::rsa2048, 1 + number % 4),
            .extendedKeyUsage = "clientAuth,emailProtection",
            .subjectAltName = "email:ivan@example.bg",
            .crlUrls = {"http://crl.example.bg/issuing.crl"},
            .ocspUrls = {"http://ocsp.example.bg/"},
            .caIssuersUrls = {"http://www.example.bg/issuing.cer"}};
}

struct Desk {
    Desk() {
        const auto root = tests::Issue({.subject = {{"CN", "Издател на сертификати"}}, .ca = true});
        for (std::size_t i = 0; i < kCertificates; ++i)
            tests::InstallCertificate(profile, kStore, tests::Issue(SpecOf(i), root));
        // A folder that changed a moment ago is read anew at each use; nobody asks in that moment.
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
    }
    tests::Profile profile;
};

// --- The two pieces of work ---

std::size_t Describe() {
    std::size_t length = 0;
    const auto hear = [](std::uint64_t context, const char16_t* json) {
        *reinterpret_cast<std::size_t*>(context) = std::char_traits<char16_t>::length(json);
    };
    if (!NorvikCertInfoJson(uR"({"Store":"Many"})", hear, reinterpret_cast<std::uint64_t>(&length))) Fail("no records");
    if (length < kCertificates * 500) Fail("records are missing");
    return length;
}

std::size_t ParseAndHashTwice() {
    std::size_t parsed = 0;
    for (const auto& entry : std::filesystem::directory_iterator(StoreFolder())) {
        const auto bytes = tests::ReadFile(entry.path());
        const auto* in = reinterpret_cast<const unsigned char*>(bytes.data());
        unsigned char digest[SHA256_DIGEST_LENGTH];
        SHA1(in, bytes.size(), digest);
        SHA256(in, bytes.size(), digest);
        benchmark::DoNotOptimize(digest);
        X509* const certificate = d2i_X509(nullptr, &in, static_cast<long>(bytes.size()));
        parsed += certificate != nullptr ? 1 : 0;
        X509_free(certificate);
    }
    if (parsed != kCertificates) Fail("not parsed");
    return parsed;
}

// --- A fresh process each time ---

long PeakKiB() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

int First(std::string_view work) {
    const long before = PeakKiB();
    const auto start = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(work == "describe" ? Describe() : ParseAndHashTwice());
    const auto spent = std::chrono::steady_clock::now() - start;
    std::cout << std::chrono::duration_cast<std::chrono::microseconds>(spent).count() << " " << PeakKiB() - before
              << "\n";
    return 0;
}

void InFreshProcess(benchmark::State& state, const char* work) {
    for (auto _ : state) {
        const auto run = tests::RunProgram({self, "--first", work});
        std::istringstream output(run.output);
        double microseconds = 0, peak = 0;
        if (run.status != 0 || !(output >> microseconds >> peak)) Fail(run.Summary());
        state.SetIterationTime(microseconds / 1e6);
        state.counters["KiB"] = peak;
    }
}

void InOneProcess(benchmark::State& state, std::size_t (*work)()) {
    work();
    for (auto _ : state)
        benchmark::DoNotOptimize(work());
}

// Prints the ratio of the least times, side by side in one run.
class Ratios : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const auto& run : runs) {
            if (run.run_type != Run::RT_Iteration) continue;
            const double time = run.GetAdjustedRealTime();
            const auto [best, isNew] = best_.try_emplace(run.run_name.function_name, time);
            if (!isNew) best->second = std::min(best->second, time);
        }
    }
    void Print(const std::string& title, const std::string& ours, const std::string& floor) {
        if (best_.contains(ours) && best_.contains(floor))
            std::cout << title << ": " << best_[ours] / best_[floor] << " x\n";
    }

  private:
    std::map<std::string, double> best_;
};

}  // namespace

int main(int count, char** values) {
    if (count == 3 && std::string_view(values[1]) == "--first") return First(values[2]);
    self = values[0];
    benchmark::Initialize(&count, values);
    if (benchmark::ReportUnrecognizedArguments(count, values)) return 2;
    const Desk desk;
    constexpr int kRepetitions = 9;
    const auto with = [](benchmark::internal::Benchmark* benchmark) {
        return benchmark->Unit(benchmark::kMillisecond)->Repetitions(kRepetitions);
    };
    with(benchmark::RegisterBenchmark("FirstParse", InFreshProcess, "parse"))->UseManualTime()->Iterations(1);
    with(benchmark::RegisterBenchmark("FirstDescribe", InFreshProcess, "describe"))->UseManualTime()->Iterations(1);
    with(benchmark::RegisterBenchmark("Parse", InOneProcess, ParseAndHashTwice));
    with(benchmark::RegisterBenchmark("Describe", InOneProcess, Describe));
    Ratios ratios;
    benchmark::RunSpecifiedBenchmarks(&ratios);
    ratios.Print("first call, target 1.5", "FirstDescribe", "FirstParse");
    ratios.Print("later calls, target 1.5", "Describe", "Parse");
    benchmark::Shutdown();
    return 0;
}
