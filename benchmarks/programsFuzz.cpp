// Feeds damaged films and photos to the programs at the fixed paths, and looks how each of them ends.
//
//   programsFuzz FILMS SECONDS [FILES [SEED]]
//
// For the private root; FILMS is a folder of scripts/sampleVideos. Ends after so many seconds or files, whichever comes
// first. What happens to file N is told by SEED and N alone. Exit status 1 when a program broke its word: each such
// case is a line on standard error, and its file is kept in /srv/kept, as are those of which a decoder died or that
// reached a limit.

#include "benchmarks/photoSamples.h"
#include "programs/front/diagnosis.h"
#include "tests/programs/programRun.h"

#include <sys/prctl.h>
#include <turbojpeg.h>

#include <array>
#include <chrono>
#include <iostream>
#include <map>
#include <memory>
#include <random>
#include <thread>

namespace {

// Files ------------------------------------------------------------------------------------------------------------

const fs::path kFolder = "/srv/fuzz";

struct Sample {
    std::string name; ///< of its copy in the folder samples
    bool film;

    [[nodiscard]] std::string bytes() const { return readFile(kFolder / "samples" / name); }
};

/// The film, or a part of it where it is large.
std::string shortFilm(const fs::path& film) {
    constexpr std::uintmax_t kEnough = 1 << 20;
    for (const char* seconds : {"3", "0.5"}) {
        if (fs::file_size(film) <= kEnough) {
            break;
        }
        const std::string part = "part" + film.extension().string();
        if (runProgram({"ffmpeg", "-v", "error", "-nostdin", "-i", film, "-t", seconds, "-c", "copy", "-y", part})
                    .status == 0 &&
            fs::file_size(part) <= kEnough) {
            return readFile(part);
        }
    }
    return readFile(film).substr(0, kEnough);
}

std::vector<Sample> filmsOf(const fs::path& folder) {
    std::vector<fs::path> paths;
    for (const auto& entry : fs::directory_iterator(folder)) {
        if (entry.path().extension() != ".jpg") {
            paths.push_back(entry);
        }
    }
    std::sort(paths.begin(), paths.end());
    std::vector<Sample> films;
    for (const fs::path& path : paths) {
        films.push_back({path.filename(), true});
        writeFile("samples" / path.filename(), shortFilm(path));
    }
    return films;
}

std::vector<Sample> photos() {
    std::vector<Sample> photos;
    const auto add = [&](const std::string& name) {
        photos.push_back({name, false});
        fs::rename("photo", "samples/" + name);
    };
    for (const Photo& photo : knownPhotos()) {
        makePhoto("photo", photo);
        add(photo.name);
    }
    for (const std::string& format : turningFormats()) {
        makeTurnedPhoto("photo", format, Turn::right);
        add(format + ", turned");
    }
    const std::pair<const char*, const char*> others[] = {
        {"GIF, animated", "-size 60x40 xc:none plasma:red-blue -alpha set gif:photo"},
        {"WebP, animated", "-size 60x40 xc:none plasma:red-blue webp:photo"},
        {"BMP, RLE", "-size 60x40 plasma:red-blue -type Palette -compress RLE bmp3:photo"},
        {"JPEG, noise", "-size 200x150 plasma:red-blue +noise Gaussian -sampling-factor 2x2 jpeg:photo"},
        {"TIFF, pages", "-size 60x40 plasma:red-blue plasma:red-blue -compress JPEG tiff:photo"}};
    for (const auto& [name, options] : others) {
        shell("convert -seed 1 "s + options);
        add(name);
    }
    return photos;
}

// Damage -----------------------------------------------------------------------------------------------------------

class Damage {
public:
    Damage(std::uint64_t seed, std::uint64_t number) {
        std::seed_seq both = {seed, number};
        random_.seed(both);
    }

    /// One of 0 .. limit - 1.
    std::size_t below(std::size_t limit) { return random_() % std::max<std::size_t>(limit, 1); }

    /// Damages the bytes of a file in one to four ways, some with those of another one.
    void apply(std::string& bytes, const std::string& other) {
        static constexpr std::array kWays = {&Damage::flipBits,  &Damage::setExtremes, &Damage::setNumber,
                                             &Damage::setNumber, &Damage::cut,         &Damage::zero};
        constexpr std::size_t kMostWays = 4;
        for (std::size_t count = 1 + below(kMostWays) * below(2); count > 0 && !bytes.empty(); --count) {
            const std::size_t way = below(kWays.size() + 3);
            if (way < kWays.size()) {
                (this->*kWays.at(way))(bytes);
            } else {
                moveChunk(bytes, way == kWays.size() ? other : bytes, way > kWays.size() + 1);
            }
        }
    }

private:
    /// Most numbers of a file stand near its beginning or end.
    std::size_t placeIn(const std::string& bytes) {
        const std::size_t near = std::min<std::size_t>(bytes.size(), 2048);
        switch (below(4)) {
        case 0:
            return below(bytes.size());
        case 1:
            return bytes.size() - near + below(near);
        default:
            return below(near);
        }
    }

    std::size_t length() { return std::size_t{1} << below(16); }

    void flipBits(std::string& bytes) {
        for (std::size_t count = 1 + below(16); count > 0; --count) {
            bytes[placeIn(bytes)] ^= static_cast<char>(1U << below(8));
        }
    }

    void setExtremes(std::string& bytes) {
        constexpr std::array<int, 4> kExtremes = {0, 0x7f, 0x80, 0xff};
        for (std::size_t count = 1 + below(16); count > 0; --count) {
            bytes[placeIn(bytes)] = static_cast<char>(kExtremes.at(below(kExtremes.size())));
        }
    }

    /// A number of 16, 32 or 64 bits of either order.
    void setNumber(std::string& bytes) {
        const std::size_t width = std::size_t{2} << below(3);
        const std::uint64_t top = std::uint64_t{1} << (8 * width - 1);
        const std::array<std::uint64_t, 8> numbers = {0,   1,       top - 1,        top,
                                                      ~0U, ~0U - 7, below(1 << 20), bytes.size() + below(64) - 32};
        const std::uint64_t number = numbers.at(below(numbers.size()));
        const bool bigEndian = below(2) == 0;
        const std::size_t place = placeIn(bytes);
        for (std::size_t i = 0; i < width && place + i < bytes.size(); ++i) {
            bytes[place + i] = static_cast<char>(number >> 8 * (bigEndian ? width - 1 - i : i));
        }
    }

    void cut(std::string& bytes) { bytes.resize(below(bytes.size())); }

    /// As what is missing of an unfinished file is, or a few bytes.
    void zero(std::string& bytes) {
        const std::size_t place = placeIn(bytes);
        const std::size_t count = std::min(below(4) == 0 ? length() : below(bytes.size()), bytes.size() - place);
        bytes.replace(place, count, count, '\0');
    }

    /// Puts a chunk of `from` into the bytes, in place of one of them or between them; or takes one away.
    void moveChunk(std::string& bytes, std::string from, bool takeAway) {
        const std::size_t place = placeIn(bytes);
        const std::string chunk = takeAway ? "" : from.substr(below(from.size()), length());
        const std::size_t replaced = takeAway ? length() : below(2) * chunk.size();
        bytes.replace(place, std::min(replaced, bytes.size() - place), chunk);
    }

    std::mt19937_64 random_;
};

// Runs -------------------------------------------------------------------------------------------------------------

/// Why it is no sound picture within so many pixels a side; empty when it is one.
std::string faultOf(const std::string& jpeg, int longestSide) {
    const std::unique_ptr<void, decltype(&tjDestroy)> reader(tjInitDecompress(), tjDestroy);
    const auto* bytes = reinterpret_cast<const unsigned char*>(jpeg.data());
    int width = 0;
    int height = 0;
    int subsampling = 0;
    int space = 0;
    if (tjDecompressHeader3(reader.get(), bytes, jpeg.size(), &width, &height, &subsampling, &space) != 0) {
        return tjGetErrorStr2(reader.get());
    }
    if (std::max(width, height) > longestSide) {
        return "the picture is too large";
    }
    std::vector<unsigned char> rgb(std::size_t{3} * static_cast<unsigned>(width) * static_cast<unsigned>(height));
    const bool sound = tjDecompress2(reader.get(), bytes, jpeg.size(), rgb.data(), width, 0, height, TJPF_RGB,
                                     TJFLAG_ACCURATEDCT) == 0;
    return sound ? "" : tjGetErrorStr2(reader.get());
}

/// Whether processes of a program are left; those that are dying are waited for.
bool leftProcesses() {
    constexpr int kHundredths = 200;
    for (int wait = 0; wait < kHundredths; ++wait) {
        const pid_t ended = waitpid(-1, nullptr, WNOHANG);
        if (ended < 0) {
            return false;
        }
        usleep(ended == 0 ? 10000 : 0);
    }
    return true;
}

bool isCrash(int status) {
    const auto signals = {SIGSEGV, SIGBUS, SIGABRT, SIGFPE, SIGILL, SIGSYS};
    return std::any_of(signals.begin(), signals.end(), [&](int signal) { return status == 128 + signal; });
}

double childSeconds() {
    rusage usage = {};
    getrusage(RUSAGE_CHILDREN, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

/// Tries files in a task of its own, one after the other.
class Attempts {
public:
    Attempts(const std::vector<Sample>& samples, std::uint64_t seed, int task)
        : samples_(samples), seed_(seed), task_("/srv/download/" + std::to_string(task)) {
        fs::create_directories(pictures_);
    }

    void attempt(std::uint64_t number) {
        Damage damage(seed_, number);
        const Sample& sample = samples_[damage.below(samples_.size())];
        std::string bytes = sample.bytes();
        damage.apply(bytes, samples_[damage.below(samples_.size())].bytes());
        title_ = std::to_string(seed_) + "." + std::to_string(number) + " " + sample.name;
        const bool unfinished = sample.film && damage.below(3) == 0;
        file_ = task_ / (!sample.film ? "photo.jpg" : unfinished ? "film.mkv.part" : "film.mkv");
        writeFile(file_, bytes);
        if (sample.film) {
            constexpr std::array<int, 8> kSeconds = {0, 1, 1, 2, 2, 10, 600'000'000, 999'999'999};
            makePicture("ffmpeg", frameCommand("/usr/vexo/bin/ffmpeg", file_, kSeconds.at(damage.below(8)), picture_),
                        1080);
            tellDuration();
        } else {
            makePicture("convert-thumb", thumbCommand("/usr/vexo/bin/convert-thumb", file_, picture_), 1024);
        }
        fs::remove(file_);
        ++counts["files"];
    }

    std::map<std::string, long> counts;

private:
    void makePicture(const std::string& program, const std::vector<std::string>& argv, int longestSide) {
        const ProgramRun run = runOne(program, argv);
        const std::string jpeg = readFile(picture_);
        require(fs::remove(picture_) == (run.status == kMade), "a picture with the status of a failure, or none");
        require(fs::is_empty(pictures_), "another file in the folder of the pictures");
        require(run.output.empty(), "words on standard output");
        const std::string fault = run.status == kMade ? faultOf(jpeg, longestSide) : "";
        require(fault.empty(), "the picture: " + fault);
        require(run.status <= kLimitReached, "it died itself");
        if (run.errors.find(" signal ") != std::string::npos) {
            keep(program + ", its decoder died", run.errors);
        }
    }

    void tellDuration() {
        const ProgramRun run =
            runOne("vexodlgetduration", {"/var/packages/Quellbox/target/bin/vexodlgetduration", "--path", file_});
        long seconds = 0;
        const bool told = std::sscanf(run.output.c_str(), "{\"duration\": %ld}", &seconds) == 1 && seconds > 0 &&
                          run.output == "{\"duration\": " + std::to_string(seconds) + "}\n";
        require(run.status == kMade ? told : run.output.empty(), "printed: " + run.output);
        if (isCrash(run.status)) {
            keep("vexodlgetduration, it died", "signal " + std::to_string(run.status - kEndedBySignal));
        }
    }

    ProgramRun runOne(const std::string& program, const std::vector<std::string>& argv) {
        const double before = childSeconds();
        const ProgramRun run = runProgram(argv);
        program_ = program;
        const bool expected = run.status == kMade || run.status == kNoPicture || run.status == kLimitReached;
        require(expected || isCrash(run.status), "status " + std::to_string(run.status) + ", " + run.errors);
        require(std::count(run.errors.begin(), run.errors.end(), '\n') == (run.status == kMade ? 0 : 1) ||
                    isCrash(run.status),
                "said: " + run.errors);
        require(!leftProcesses(), "processes are left");
        ++counts[program + ", status " + std::to_string(run.status)];
        takeMost("most milliseconds of processor time, " + program, std::lround(1000 * (childSeconds() - before)));
        takeMost("most MiB of memory, " + program, run.peakBytes >> 20U);
        if (run.status == kLimitReached) {
            keep(program + ", a limit", run.errors);
        }
        return run;
    }

    void takeMost(const std::string& what, long value) { counts[what] = std::max(counts[what], value); }

    void require(bool condition, const std::string& otherwise) {
        if (!condition) {
            keep("faults", otherwise);
        }
    }

    /// Counts the file as one of such, tells of it and keeps a copy.
    void keep(const std::string& kind, std::string why) {
        constexpr long kMost = 100;
        why.erase(why.find_last_not_of('\n') + 1);
        if (++counts[kind] <= kMost) {
            std::cerr << kind + ": " + program_ + ", " + title_ + ": " + why + "\n";
            fs::create_directories("/srv/kept");
            fs::copy_file(file_, "/srv/kept/" + title_ + (file_.extension() == ".part" ? ".part" : ""),
                          fs::copy_options::overwrite_existing);
        }
    }

    const std::vector<Sample>& samples_;
    const std::uint64_t seed_;
    const fs::path task_;
    const fs::path pictures_ = task_ / "vexodlthumbnail";
    const fs::path picture_ = pictures_ / "0_0.jpeg";
    std::string title_;
    std::string program_;
    fs::path file_;
};

using Clock = std::chrono::steady_clock;

/// Of several processes the one that tries every `step`th file. Leaves its counts in a file.
void tryEach(const std::vector<Sample>& samples, std::uint64_t seed, std::uint64_t first, std::uint64_t step,
             std::uint64_t files, Clock::time_point end) {
    prctl(PR_SET_CHILD_SUBREAPER, 1); // what a program leaves comes here
    const std::string name = std::to_string(first);
    fs::create_directories(name);
    fs::current_path(name);
    Attempts attempts(samples, seed, 100 + static_cast<int>(first));
    for (std::uint64_t number = first; number < files && Clock::now() < end; number += step) {
        attempts.attempt(number);
    }
    std::ofstream counts("counts");
    for (const auto& [what, count] : attempts.counts) {
        counts << count << ' ' << what << '\n';
    }
}

std::map<std::string, long> sumOf(std::uint64_t processes) {
    std::map<std::string, long> all;
    for (std::uint64_t i = 0; i < processes; ++i) {
        std::ifstream counts(std::to_string(i) + "/counts");
        std::string what;
        for (long count = 0; counts >> count && std::getline(counts.ignore(), what);) {
            all[what] = what.rfind("most ", 0) == 0 ? std::max(all[what], count) : all[what] + count;
        }
    }
    return all;
}

int run(const fs::path& folder, int seconds, std::uint64_t files, std::uint64_t seed) {
    fs::create_directories(kFolder / "samples");
    fs::current_path(kFolder);
    std::vector<Sample> samples = filmsOf(folder);
    const std::size_t films = samples.size();
    for (Sample& photo : photos()) {
        samples.push_back(std::move(photo));
    }
    std::cout << "seed " << seed << ": " << films << " films, " << samples.size() - films << " photos" << std::endl;
    const auto begin = Clock::now();
    const std::uint64_t processes = std::max(1U, std::thread::hardware_concurrency());
    for (std::uint64_t i = 0; i < processes; ++i) {
        if (fork() == 0) {
            tryEach(samples, seed, i, processes, files, begin + std::chrono::seconds(seconds));
            _exit(0);
        }
    }
    bool sound = !testing::Test::HasFailure();
    for (int status = 0; wait(&status) > 0;) {
        sound = sound && status == 0;
    }
    auto counts = sumOf(processes);
    for (const auto& [what, count] : counts) {
        std::cout << what << ": " << count << '\n';
    }
    const std::chrono::duration<double> taken = Clock::now() - begin;
    std::cout << "files a second: " << static_cast<double>(counts["files"]) / taken.count() << '\n';
    return sound && counts["files"] > 0 && counts["faults"] == 0 ? 0 : 1;
}

} // namespace

int main(int count, char** arguments) {
    if (count < 3 || count > 5) {
        std::cerr << "usage: programsFuzz FILMS SECONDS [FILES [SEED]]\n";
        return 2;
    }
    try {
        return run(fs::absolute(arguments[1]), std::stoi(arguments[2]),
                   count > 3 ? std::stoull(arguments[3]) : UINT64_MAX,
                   count > 4 ? std::stoull(arguments[4]) : std::random_device()());
    } catch (const std::exception& error) {
        std::cerr << "programsFuzz: " << error.what() << '\n';
        return 1;
    }
}
