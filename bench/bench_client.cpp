// The benchmark's D-Bus client, on libsystemd's sd-bus so that the client side costs the same
// whichever service it calls. It makes --calls calls of one method, spread over --processes
// processes that connect first and then start together, or, with --until-signal, calls in one
// process until SIGTERM. With --spread an argument may list values separated by commas, and
// call n takes value n modulo their count, so that one client reads several meters in turn.
// It prints one line of key=value figures:
//   calls=N errors=E seconds=S rate=R p50_us=A p99_us=B max_us=C
// and the first failed calls on stderr, with the D-Bus error (a timeout is one too).

#include <systemd/sd-bus.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

struct Options
{
    std::string address;
    std::string service;
    std::string path;
    std::string interface;
    std::string method;
    std::string signature;
    std::vector<std::string> arguments;
    // The values each argument takes in turn: the argument itself, or its comma-separated
    // values with --spread.
    std::vector<std::vector<std::string>> choices;
    long calls = 10000;
    int processes = 1;
    bool untilSignal = false;
    bool spread = false;
};

// Enough to tell what went wrong without flooding the output when every call fails.
constexpr int reportedFailures = 5;

// What one process measured; the processes share the monotonic clock.
struct Header
{
    int64_t startNs;
    int64_t endNs;
    int64_t errors;
    int64_t count;
};

volatile sig_atomic_t stopRequested = 0;

int64_t nowNs()
{
    timespec now {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t(now.tv_sec) * 1000000000 + now.tv_nsec;
}

std::vector<std::string> split(const std::string &text)
{
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t comma = text.find(','); comma != std::string::npos; comma = text.find(',', start)) {
        parts.push_back(text.substr(start, comma - start));
        start = comma + 1;
    }
    parts.push_back(text.substr(start));
    return parts;
}

bool parse(int argc, char *argv[], Options &options)
{
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        const bool hasValue = i + 1 < argc;
        if (option == "--until-signal") {
            options.untilSignal = true;
        } else if (option == "--spread") {
            options.spread = true;
        } else if (option == "--signature" && hasValue) {
            options.signature = argv[++i];
            for (size_t n = 0; n < options.signature.size() && i + 1 < argc; ++n)
                options.arguments.emplace_back(argv[++i]);
        } else if (!hasValue) {
            return false;
        } else if (option == "--address") {
            options.address = argv[++i];
        } else if (option == "--service") {
            options.service = argv[++i];
        } else if (option == "--path") {
            options.path = argv[++i];
        } else if (option == "--interface") {
            options.interface = argv[++i];
        } else if (option == "--method") {
            options.method = argv[++i];
        } else if (option == "--calls") {
            options.calls = std::strtol(argv[++i], nullptr, 10);
        } else if (option == "--processes") {
            options.processes = int(std::strtol(argv[++i], nullptr, 10));
        } else {
            return false;
        }
    }
    for (const std::string &argument : options.arguments)
        options.choices.push_back(options.spread ? split(argument) : std::vector { argument });
    return !options.address.empty() && !options.service.empty() && !options.path.empty()
        && !options.interface.empty() && !options.method.empty()
        && options.arguments.size() == options.signature.size() && options.calls > 0
        && options.processes > 0;
}

sd_bus *connect(const Options &options)
{
    sd_bus *bus = nullptr;
    if (sd_bus_new(&bus) < 0)
        return nullptr;
    if (sd_bus_set_address(bus, options.address.c_str()) < 0 || sd_bus_set_bus_client(bus, 1) < 0
        || sd_bus_start(bus) < 0) {
        sd_bus_unref(bus);
        return nullptr;
    }
    return bus;
}

int appendArgument(sd_bus_message *message, char type, const std::string &text)
{
    switch (type) {
    case 's':
        return sd_bus_message_append_basic(message, 's', text.c_str());
    case 'i': {
        const int32_t value = int32_t(std::strtol(text.c_str(), nullptr, 10));
        return sd_bus_message_append_basic(message, 'i', &value);
    }
    case 'q': {
        const uint16_t value = uint16_t(std::strtoul(text.c_str(), nullptr, 10));
        return sd_bus_message_append_basic(message, 'q', &value);
    }
    case 'b': {
        const int value = text == "true" || text == "1";
        return sd_bus_message_append_basic(message, 'b', &value);
    }
    default:
        return -EINVAL;
    }
}

void reportFailure(const Options &options, long index, int result, const sd_bus_error &error)
{
    std::string arguments;
    for (const std::vector<std::string> &values : options.choices)
        arguments += ' ' + values[size_t(index) % values.size()];
    std::fprintf(stderr, "bench_client: %s%s failed: %s: %s\n", options.method.c_str(),
        arguments.c_str(), error.name ? error.name : "no reply",
        error.message ? error.message : std::strerror(-result));
}

// Call number index; a failure is described on stderr when describeFailure says so, unless the
// call was cut short by the signal that ends the run.
bool callOnce(sd_bus *bus, const Options &options, long index, bool describeFailure)
{
    sd_bus_message *call = nullptr;
    sd_bus_message *reply = nullptr;
    sd_bus_error error = SD_BUS_ERROR_NULL;
    int result = sd_bus_message_new_method_call(bus, &call, options.service.c_str(),
        options.path.c_str(), options.interface.c_str(), options.method.c_str());
    for (size_t i = 0; result >= 0 && i < options.choices.size(); ++i) {
        const std::vector<std::string> &values = options.choices[i];
        result = appendArgument(call, options.signature[i], values[size_t(index) % values.size()]);
    }
    if (result >= 0)
        result = sd_bus_call(bus, call, 0, &error, &reply);
    if (result < 0 && describeFailure && !stopRequested)
        reportFailure(options, index, result, error);
    sd_bus_error_free(&error);
    sd_bus_message_unref(reply);
    sd_bus_message_unref(call);
    return result >= 0;
}

void writeAll(int fd, const void *data, size_t size)
{
    const char *bytes = static_cast<const char *>(data);
    while (size > 0) {
        const ssize_t written = write(fd, bytes, size);
        if (written <= 0 && errno != EINTR)
            return;
        if (written > 0) {
            bytes += written;
            size -= size_t(written);
        }
    }
}

bool readAll(int fd, void *data, size_t size)
{
    char *bytes = static_cast<char *>(data);
    while (size > 0) {
        const ssize_t got = read(fd, bytes, size);
        if (got == 0 || (got < 0 && errno != EINTR))
            return false;
        if (got > 0) {
            bytes += got;
            size -= size_t(got);
        }
    }
    return true;
}

// One process's share: waits for the start byte, calls, and writes its figures to resultFd.
int runWorker(const Options &options, long calls, int readyFd, int goFd, int resultFd)
{
    sd_bus *bus = connect(options);
    const char ready = bus ? 'r' : 'x';
    writeAll(readyFd, &ready, 1);
    char go = 0;
    if (!bus || !readAll(goFd, &go, 1))
        return 1;
    std::vector<int64_t> latencies;
    latencies.reserve(size_t(calls));
    Header header { nowNs(), 0, 0, 0 };
    for (long i = 0; i < calls; ++i) {
        const int64_t before = nowNs();
        header.errors += callOnce(bus, options, i, header.errors < reportedFailures) ? 0 : 1;
        latencies.push_back(nowNs() - before);
    }
    header.endNs = nowNs();
    header.count = int64_t(latencies.size());
    writeAll(resultFd, &header, sizeof header);
    writeAll(resultFd, latencies.data(), latencies.size() * sizeof(int64_t));
    sd_bus_flush_close_unref(bus);
    return 0;
}

void print(std::vector<int64_t> &latencies, int64_t errors, double seconds)
{
    std::sort(latencies.begin(), latencies.end());
    const auto percentileUs = [&](double p) {
        return latencies.empty()
            ? 0.0
            : double(latencies[size_t(p * double(latencies.size() - 1))]) / 1000.0;
    };
    std::printf("calls=%zu errors=%lld seconds=%.3f rate=%.1f p50_us=%.1f p99_us=%.1f "
                "max_us=%.1f\n",
        latencies.size(), static_cast<long long>(errors), seconds,
        seconds > 0 ? double(latencies.size()) / seconds : 0.0, percentileUs(0.50),
        percentileUs(0.99), latencies.empty() ? 0.0 : double(latencies.back()) / 1000.0);
}

int runUntilSignal(const Options &options)
{
    struct sigaction action
    {
    };
    action.sa_handler = [](int) { stopRequested = 1; };
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
    sd_bus *bus = connect(options);
    if (!bus)
        return 1;
    std::printf("ready\n");
    std::fflush(stdout);
    std::vector<int64_t> latencies;
    int64_t errors = 0;
    const int64_t start = nowNs();
    for (long index = 0; !stopRequested; ++index) {
        const int64_t before = nowNs();
        const bool answered = callOnce(bus, options, index, errors < reportedFailures);
        if (stopRequested && !answered)
            break; // cut short by the signal, not a failure of the service
        errors += answered ? 0 : 1;
        latencies.push_back(nowNs() - before);
    }
    print(latencies, errors, double(nowNs() - start) / 1e9);
    sd_bus_flush_close_unref(bus);
    return 0;
}

int runTogether(const Options &options)
{
    int readyPipe[2];
    int goPipe[2];
    if (pipe(readyPipe) != 0 || pipe(goPipe) != 0)
        return 1;
    std::vector<int> resultFds;
    std::vector<pid_t> children;
    for (int p = 0; p < options.processes; ++p) {
        int resultPipe[2];
        if (pipe(resultPipe) != 0)
            return 1;
        const long share
            = options.calls / options.processes + (p < options.calls % options.processes ? 1 : 0);
        const pid_t child = fork();
        if (child == 0) {
            close(resultPipe[0]);
            _exit(runWorker(options, share, readyPipe[1], goPipe[0], resultPipe[1]));
        }
        close(resultPipe[1]);
        resultFds.push_back(resultPipe[0]);
        children.push_back(child);
    }
    bool allReady = true;
    for (int p = 0; p < options.processes; ++p) {
        char ready = 0;
        allReady = readAll(readyPipe[0], &ready, 1) && ready == 'r' && allReady;
    }
    const std::string go(size_t(options.processes), 'g');
    if (allReady)
        writeAll(goPipe[1], go.data(), go.size());
    close(goPipe[1]);

    std::vector<int64_t> latencies;
    int64_t errors = 0;
    int64_t start = INT64_MAX;
    int64_t end = 0;
    for (int fd : resultFds) {
        Header header {};
        if (allReady && readAll(fd, &header, sizeof header)) {
            std::vector<int64_t> own(size_t(header.count));
            if (readAll(fd, own.data(), own.size() * sizeof(int64_t)))
                latencies.insert(latencies.end(), own.begin(), own.end());
            errors += header.errors;
            start = std::min(start, header.startNs);
            end = std::max(end, header.endNs);
        }
        close(fd);
    }
    for (pid_t child : children)
        waitpid(child, nullptr, 0);
    if (!allReady) {
        std::fprintf(stderr, "bench_client: could not connect to %s\n", options.address.c_str());
        return 1;
    }
    print(latencies, errors, double(end - start) / 1e9);
    return 0;
}

} // namespace

int main(int argc, char *argv[])
{
    Options options;
    if (!parse(argc, argv, options)) {
        std::fprintf(stderr,
            "usage: bench_client --address ADDRESS --service NAME --path PATH --interface NAME "
            "--method NAME [--calls N] [--processes P] [--until-signal] [--spread] "
            "[--signature SIG ARGUMENT...]\n");
        return 2;
    }
    return options.untilSignal ? runUntilSignal(options) : runTogether(options);
}
