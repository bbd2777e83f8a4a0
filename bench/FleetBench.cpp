// SPDX-License-Identifier: Apache-2.0

// Simulates many agents and prints what a service must stand.

#include "bench/BenchmarkTable.h"
#include "bench/PayloadSizes.h"
#include "bench/fleet/Fleet.h"

#include <QCoreApplication>

#include <fmt/format.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace orvel::bench {

namespace {

namespace fs = std::filesystem;
using Call = Fleet::Call;
using Second = Fleet::Second;

constexpr Second hour = 3'600;
constexpr Second day = 24 * hour;

constexpr std::array<std::size_t, 3> fleetSizes = {1'000, 100'000, 1'000'000};

// Assumptions. `assumptions()` prints them.

/// After the page has opened. The user has to find a password.
constexpr Second quickestSignIn = 30;
constexpr Second slowestSignIn = 180;
/// Known contacts only is the default.
constexpr double allThreadsShare = 0.1;
/// To be uploaded. The number of requests hardly depends on it: a scan makes at most one upload of
/// up to 500 messages.
constexpr double messagesPerDay = 50;
/// Rows of the Messages database, from a new machine to a decade of group chats.
struct History {
    double share;
    std::uint32_t rows;
};
constexpr std::array<History, 4> histories{
    {{0.1, 2'000}, {0.4, 10'000}, {0.4, 50'000}, {0.1, 200'000}}};
/// Hints in the reply to the digest: those of a full address book.
constexpr int knownHandles = 500;
/// A signed JSON token of the identity provider.
constexpr std::size_t tokenBytes = 1'000;
/// Status line and headers of a reply, and the body of every reply but the digest.
constexpr double replyHead = 250;
constexpr double replyBody = 150;
/// TLS 1.3 without resumption: every request has a new connection. Down: a chain of two
/// certificates and two tickets.
constexpr double handshakeUp = 800;
constexpr double handshakeDown = 4'000;
/// The agent does not vary its waits. Enough to spread a group of agents within hours.
constexpr double proposedJitter = 0.1;
/// Of the sample that is encoded to measure the sizes.
constexpr std::int64_t sampleMessages = 20'000;

constexpr std::array calls = {
    Call::Digest, Call::Ingest, Call::Diagnostics, Call::DeviceToken, Call::Profile};

/// What the service gets in a period.
class Traffic final {
public:
    void add(const Fleet::Load& load) {
        std::uint64_t requests = 0;
        for (const Call call : calls) {
            requests += load.of(call);
        }
        for (std::size_t call = 0; call < Fleet::callCount; ++call) {
            total_.requests[call] += load.requests[call];
        }
        total_.unanswered += load.unanswered;
        total_.historyRows += load.historyRows;
        total_.newMessages += load.newMessages;
        requests_ += requests;
        busiest_ = std::max(busiest_, requests);
        ++seconds_;
    }

    [[nodiscard]] double rate(Call call) const { return perSecond(total_.of(call)); }
    [[nodiscard]] double rate() const { return perSecond(requests_); }
    [[nodiscard]] double unanswered() const { return perSecond(total_.unanswered); }
    /// The most requests in one second.
    [[nodiscard]] double busiest() const { return static_cast<double>(busiest_); }

    [[nodiscard]] double bytesUp(PayloadSizes sizes) const {
        double bytes = handshakeUp * rate();
        for (const Call call : calls) {
            bytes += sizes.of(call) * rate(call);
        }
        return bytes + sizes.record * (sizes.uploadedShare * perSecond(total_.historyRows) +
                                       perSecond(total_.newMessages));
    }

    [[nodiscard]] double bytesDown(const PayloadSizes& sizes) const {
        return (handshakeDown + replyHead + replyBody) * rate() +
               sizes.hint * knownHandles * rate(Call::Digest);
    }

private:
    [[nodiscard]] double perSecond(std::uint64_t count) const {
        return static_cast<double>(count) / static_cast<double>(seconds_);
    }

    Fleet::Load total_;
    std::uint64_t requests_ = 0;
    std::uint64_t busiest_ = 0;
    std::uint64_t seconds_ = 0;
};

/// The traffic from now on, for that time.
Traffic trafficFor(Fleet& fleet, Second duration) {
    Traffic traffic;
    fleet.run(fleet.now() + duration, [&](Second, const Fleet::Load& load) { traffic.add(load); });
    return traffic;
}

Fleet::Options fleetOptions() {
    Fleet::Options options;
    options.messagesPerDay = messagesPerDay;
    return options;
}

/// All start within a day.
std::vector<Fleet::Newcomer> newcomers(std::size_t count) {
    std::mt19937_64 generator(1);
    const auto random = [&generator] {
        return static_cast<double>(generator() >> 11U) / 9007199254740992.0;
    };
    std::vector<Fleet::Newcomer> agents(count);
    for (Fleet::Newcomer& agent : agents) {
        agent.start = static_cast<Second>(random() * day);
        agent.signInAfter =
            quickestSignIn + static_cast<Second>(random() * (slowestSignIn - quickestSignIn));
        agent.allThreads = random() < allThreadsShare;
        double rest = random();
        for (const History& history : histories) {
            agent.historyRows = history.rows;
            rest -= history.share;
            if (rest < 0) {
                break;
            }
        }
    }
    // Neighbours in time are neighbours in memory.
    std::ranges::sort(agents, {}, &Fleet::Newcomer::start);
    return agents;
}

class Report final {
public:
    explicit Report(const PayloadSizes& sizes) : sizes_(sizes) {}

    /// The requests a second in quiet times.
    void beginFleet(std::size_t agents, double quiet) {
        agents_ = agents;
        quiet_ = quiet;
    }

    void add(std::string_view period, const Traffic& traffic) {
        const double signIn = traffic.rate(Call::DeviceToken) + traffic.rate(Call::Profile);
        const double provider = traffic.rate(Call::CustomToken) + traffic.rate(Call::Refresh);
        text_ += fmt::format(
            "| {} | {} | {} | {} | {} | {} | {} | {} | {} | {:.1f} | {:.1f} | {:.2f} | {:.2f} |\n",
            agents_,
            period,
            shown(traffic.rate(Call::Digest)),
            shown(traffic.rate(Call::Ingest)),
            shown(traffic.rate(Call::Diagnostics)),
            shown(signIn),
            shown(provider),
            shown(traffic.rate()),
            traffic.busiest(),
            traffic.busiest() / traffic.rate(),
            traffic.busiest() / quiet_,
            traffic.bytesUp(sizes_) / 1e6,
            traffic.bytesDown(sizes_) / 1e6);
        fmt::print(stderr, "{} agents, {}: {:.1f} requests/s\n", agents_, period, traffic.rate());
    }

    [[nodiscard]] std::string table() const {
        return "| Agents | Period | Digest | Ingest | Diagnostics | Sign-in, profile | Identity "
               "provider | Service | Busiest second | Peak ÷ mean | Peak ÷ quiet | Up, MB/s | "
               "Down, MB/s "
               "|\n|---|---|---|---|---|---|---|---|---|---|---|---|---|\n" +
               text_;
    }

private:
    static std::string shown(double rate) {
        return fmt::format("{:.{}f}", rate, rate < 100 ? 2 : 0);
    }

    const PayloadSizes sizes_;
    std::size_t agents_ = 0;
    double quiet_ = 0;
    std::string text_;
};

constexpr Second shortOutage = 600;
constexpr Second longOutage = 3 * hour;

/// The fleet at the end of an outage that begins now.
Fleet afterOutage(Fleet fleet, Second duration, Fleet::Absence absence) {
    fleet.setOutage({fleet.now(), fleet.now() + duration, absence});
    trafficFor(fleet, duration);
    return fleet;
}

/// A fleet without sign-ins and first scans.
Fleet quietFleet(std::size_t agents, Report& report) {
    Fleet fleet(newcomers(agents), fleetOptions());
    const Traffic first = trafficFor(fleet, day);
    // The longest history takes more than an hour.
    trafficFor(fleet, 2 * hour);
    const Traffic quiet = trafficFor(fleet, 6 * hour);
    report.beginFleet(agents, quiet.rate());
    report.add("quiet", quiet);
    report.add("day of the first scans", first);
    return fleet;
}

/// Other outages, hours later, and with waits that vary. `back` has seen the long outage.
void addVariants(const Fleet& fleet, const Fleet& back, Report& report) {
    using Absence = Fleet::Absence;
    const auto addHour = [&report](std::string_view period, Fleet one, Second later = 0) {
        trafficFor(one, later);
        report.add(period, trafficFor(one, hour));
    };
    Fleet::Options options = fleetOptions();
    options.jitter = proposedJitter;
    const auto varied = [&options](Fleet one) {
        one.setOptions(options);
        return one;
    };
    const std::string waits = fmt::format("waits ± {:g} %", 100 * proposedJitter);
    const Fleet reset = afterOutage(fleet, longOutage, Absence::Reset);
    addHour("after 10 minutes without answer", afterOutage(fleet, shortOutage, Absence::Silent));
    addHour("after 3 hours without answer", afterOutage(fleet, longOutage, Absence::Silent));
    addHour("after 3 hours without answer, with resets", reset);
    addHour("the same, " + waits, varied(reset));
    addHour("sixth hour after 3 hours away", back, 5 * hour);
    addHour("the same, " + waits, varied(back), 5 * hour);
}

/// The traffic while the service was away.
std::string refusals(const Traffic& away, std::size_t agents) {
    return fmt::format(
        "In the third hour away, {} agents try {:.0f} connections a second, {} in the busiest.\n",
        agents,
        away.unanswered(),
        away.busiest());
}

std::string assumptions(PayloadSizes sizes) {
    std::string rows;
    for (const History& history : histories) {
        rows += fmt::format(
            "{}{} ({:g} %)", rows.empty() ? "" : ", ", history.rows, 100 * history.share);
    }
    return fmt::format(
        "Simulated with the waits of the agent and a fixed seed. Assumed: all agents are started "
        "within 24 hours, at random, and run from then on; a user signs in {} to {} s after the "
        "start; {:g} % of the users choose all conversations; {:g} new messages a day to upload, "
        "at random; rows of the Messages database: {}; {} known handles in each digest; "
        "{}-byte bearer tokens; a scan and an answered request take no time; the identity provider "
        "always answers.\n\n"
        "Measured by encoding a sample of {} messages, request line and headers included: digest "
        "{:.0f} bytes, upload {:.0f} bytes and {:.0f} for each message, diagnostics {:.0f} bytes, "
        "device token {:.0f} bytes, profile {:.0f} bytes; {:.1f} bytes for each handle of a "
        "digest; "
        "{:.0f} % of the rows of a history are uploaded. Assumed: {:g} bytes of headers and {:g} "
        "of "
        "body in each reply, and for each request a TLS handshake on a new connection with {:g} "
        "bytes up and {:g} bytes down. TCP and IP headers are not counted.\n",
        quickestSignIn,
        slowestSignIn,
        100 * allThreadsShare,
        messagesPerDay,
        rows,
        knownHandles,
        tokenBytes,
        sampleMessages,
        sizes.of(Call::Digest),
        sizes.of(Call::Ingest),
        sizes.record,
        sizes.of(Call::Diagnostics),
        sizes.of(Call::DeviceToken),
        sizes.of(Call::Profile),
        sizes.hint,
        100 * sizes.uploadedShare,
        replyHead,
        replyBody,
        handshakeUp,
        handshakeDown);
}

double memoryMiB() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024;
}

double processorSeconds() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

void run(const fs::path& directory, const fs::path& document) {
    fs::create_directories(directory);
    // For the agent's copies of the sample.
    setenv("TMPDIR", directory.c_str(), 1);
    const PayloadSizes sizes = measurePayloads(directory, sampleMessages, tokenBytes);
    Report report(sizes);
    std::string refused;
    const double start = processorSeconds();
    for (const std::size_t agents : fleetSizes) {
        const Fleet fleet = quietFleet(agents, report);
        Fleet soon = afterOutage(fleet, shortOutage, Fleet::Absence::Refused);
        report.add("after 10 minutes away", trafficFor(soon, hour));

        Fleet back = fleet;
        back.setOutage({back.now(), back.now() + longOutage, Fleet::Absence::Refused});
        trafficFor(back, longOutage - hour);
        const Traffic away = trafficFor(back, hour);
        Fleet later = back;
        report.add("after 3 hours away", trafficFor(later, hour));
        if (agents == fleetSizes.back()) {
            addVariants(fleet, back, report);
            refused = refusals(away, agents);
        }
    }
    const std::string figures = fmt::format(
        "{}\nRequests a second, on average over the period. \"After\" means the hour after an "
        "outage. "
        "The columns from \"Service\" on are without the identity provider.\n\n{}\n{}",
        assumptions(sizes),
        report.table(),
        refused);
    fmt::print("{}", figures);
    fmt::print(
        stderr,
        "{:.0f} s of CPU time for the simulation, {:.0f} MiB at most.\n",
        processorSeconds() - start,
        memoryMiB());
    if (!document.empty()) {
        writeFigures(document, "fleet", figures);
    }
}

} // namespace

} // namespace orvel::bench

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.empty() || arguments.size() > 2 || arguments[0] == "--help") {
        fmt::print(
            "Usage: fleet_bench DIRECTORY [DOCUMENT]\n\n"
            "Simulates up to a million agents, prints what a service gets from them and writes it\n"
            "between the markers of the document. Creates a sample in the directory.\n");
        return arguments.empty() || arguments[0] != "--help" ? 2 : 0;
    }
    try {
        orvel::bench::run(
            std::filesystem::absolute(arguments[0]), arguments.size() > 1 ? arguments[1] : "");
        return 0;
    } catch (const std::exception& error) {
        fmt::print(stderr, "fleet_bench: {}\n", error.what());
        return 1;
    }
}
