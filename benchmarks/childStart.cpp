// What it takes to run /bin/true and wait for it, by the caller's resident memory: through the host layer and with the
// bare calls, in turn with a caller of 10 MiB, each caller in a process of its own. The time shown is that of the host
// layer.

#include "benchmarks/median.h"
#include "platform/process.h"

#include <array>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Way = bool (*)();

constexpr const char* kProgram = "/bin/true";
constexpr std::size_t kMebibyte = 1024UL * 1024;

char* const* arguments() {
    static std::array<char*, 2> argv = {const_cast<char*>(kProgram), nullptr};
    return argv.data();
}

bool endsWell(pid_t child) {
    int status = -1;
    return waitpid(child, &status, 0) == child && status == 0;
}

bool viaHostLayer() {
    return VLIBCExecv(kProgram, arguments(), 1) == 0;
}

bool viaSpawn() {
    pid_t child = 0;
    return posix_spawn(&child, kProgram, nullptr, nullptr, arguments(), environ) == 0 && endsWell(child);
}

bool viaFork() {
    const pid_t child = fork();
    if (child == 0) {
        execv(kProgram, arguments());
        _exit(127);
    }
    return child > 0 && endsWell(child);
}

std::size_t availableMebibytes() {
    std::ifstream file("/proc/meminfo");
    std::string word;
    std::size_t kibibytes = 0;
    while (file >> word) {
        if (word == "MemAvailable:" && file >> kibibytes) {
            return kibibytes / 1024;
        }
    }
    return 0;
}

/// Memory of a service's heap: written once, in small pages.
class Ballast {
public:
    explicit Ballast(std::size_t mebibytes) : size_(mebibytes * kMebibyte) {
        bytes_ = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        madvise(bytes_, size_, MADV_NOHUGEPAGE);
        for (std::size_t offset = 0; offset < size_; offset += 4096) {
            static_cast<volatile char*>(bytes_)[offset] = 1;
        }
    }
    ~Ballast() { munmap(bytes_, size_); }
    Ballast(const Ballast&) = delete;
    Ballast& operator=(const Ballast&) = delete;

private:
    std::size_t size_;
    void* bytes_;
};

/// A process that has so much resident memory and starts children when told.
class Caller {
public:
    explicit Caller(std::size_t mebibytes) {
        std::array<int, 2> orders = {};
        std::array<int, 2> answers = {};
        if (pipe(orders.data()) != 0 || pipe(answers.data()) != 0) {
            std::abort();
        }
        process_ = fork();
        if (process_ == 0) {
            close(orders[1]);
            const Ballast ballast(mebibytes);
            obey(orders[0], answers[1]);
        }
        close(orders[0]);
        close(answers[1]);
        orders_ = orders[1];
        answers_ = answers[0];
    }
    ~Caller() {
        close(orders_);
        close(answers_);
        waitpid(process_, nullptr, 0);
    }
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;

    /// @return the seconds that one child took, negative when it failed.
    double run(Way way) const {
        double seconds = -1;
        const bool told = write(orders_, &way, sizeof way) == sizeof way &&
                          read(answers_, &seconds, sizeof seconds) == sizeof seconds;
        return told ? seconds : -1;
    }

private:
    [[noreturn]] static void obey(int orders, int answers) {
        Way way = nullptr;
        while (read(orders, &way, sizeof way) == sizeof way) {
            bool good = false;
            const double seconds = secondsOf([&] { good = way(); });
            const double answer = good ? seconds : -1;
            if (write(answers, &answer, sizeof answer) != sizeof answer) {
                break;
            }
        }
        _exit(0);
    }

    pid_t process_;
    int orders_;
    int answers_;
};

/// One way in one caller.
struct Row {
    const Caller& caller;
    Way way;
    std::vector<double> seconds;

    bool run() {
        seconds.push_back(caller.run(way));
        return seconds.back() >= 0;
    }
};

void childStart(benchmark::State& state) {
    const auto resident = static_cast<std::size_t>(state.range(0));
    if (availableMebibytes() < resident + resident / 4) {
        state.SkipWithError("not enough memory");
        return;
    }
    const Caller small(10);
    const Caller caller(resident);
    std::array<Row, 4> rows = {
        {{caller, viaHostLayer, {}}, {caller, viaSpawn, {}}, {small, viaHostLayer, {}}, {small, viaSpawn, {}}}};
    Row fork = {caller, viaFork, {}};
    bool good = fork.run() && small.run(viaSpawn) >= 0; // the callers are ready
    std::size_t round = 0;
    while (good && state.KeepRunning()) {
        ++round;
        for (std::size_t place = 0; place < rows.size(); ++place) {
            good = good && rows.at((place + round) % rows.size()).run();
        }
        if (round % 100 == 0) { // it takes long, and leaves page faults to whoever runs next
            good = good && fork.run() && caller.run(viaSpawn) >= 0;
        }
        state.SetIterationTime(good ? rows[0].seconds.back() : 0);
    }
    if (!good) {
        state.SkipWithError("a child failed");
        return;
    }
    const double host = median(rows[0].seconds);
    const double spawn = median(rows[1].seconds);
    state.counters["host_us"] = host * 1e6;
    state.counters["spawn_us"] = spawn * 1e6;
    state.counters["fork_us"] = median(fork.seconds) * 1e6;
    state.counters["host/spawn"] = host / spawn;
    state.counters["host/host_10MiB"] = host / median(rows[2].seconds);
    state.counters["spawn/spawn_10MiB"] = spawn / median(rows[3].seconds);
}

} // namespace

BENCHMARK(childStart)->ArgName("MiB")->Arg(10)->Arg(1024)->Arg(8192)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_MAIN();
