// Takes pieces of films away at random, and compares the pictures that our ffmpeg makes of the rest with those that
// stock ffmpeg makes of the finished films; the lengths too.
//
//   unfinishedFilms FOLDER MAPS [stock] [missed] [keep] [lengths] [FILM...]
//
// For the private root. FOLDER gets the films, which are made when they are not there. Each of them, or of those that
// are named, loses other pieces MAPS times, the same in every run. A frame counts for a second when it is intra-coded,
// all its bytes are there, and it is shown at the second or up to six later. A length is right within a second where
// the head tells it or the first and the last bytes are there, else within 5 %. Prints a Markdown table, and a line on
// standard error for each wrong picture or length. Exit status: 1 for a wrong picture, or too few that are right.
//
//   stock    tries stock ffmpeg too
//   missed   tells on standard error why a picture that was possible was not made
//   keep     leaves the files of wrong pictures in FOLDER/kept
//   lengths  tries the lengths only

#include "tests/programs/programRun.h"

#include <fcntl.h>
#include <sys/prctl.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <map>
#include <random>
#include <set>
#include <system_error>

namespace {

const fs::path kTask = "/srv/download/7";
const fs::path kPicture = kTask / "vexodlthumbnail" / "picture.jpeg";
constexpr auto kOurs = "/usr/vexo/bin/ffmpeg";
constexpr auto kStock = "/usr/bin/ffmpeg";
constexpr auto kLengthProgram = "/var/packages/Quellbox/target/bin/vexodlgetduration";
constexpr double kLatest = 6; // seconds behind the one that is sought
constexpr double kRightOfFilm = 0.9;
constexpr double kRightOfAll = 0.93;
constexpr double kRightLengths = 0.95;
constexpr double kNearLength = 0.05;          // where it has to be guessed
constexpr std::int64_t kOutermost = 64 << 10; // bytes with a film's first and last time stamps

// What differs from frame to frame: much of the time little, else up to five times as much.
const std::string kSource = R"(-f lavfi -i "testsrc2=s=480x270:r=25:d=61,noise=alls=5:allf=t,)"
                            R"(noise=alls=25:allf=t:enable=lt(mod(t\,17)\,6),)"
                            R"(noise=alls=12:allf=t:enable=between(t\,20\,41),format=yuv420p" )"
                            "-f lavfi -i anoisesrc=d=61:a=0.1:seed=1 ";
const std::string kX264 = "-c:v libx264 -threads 2 -preset ultrafast -crf 31 -c:a aac -x264-params keyint=50:";
const std::string kH264 = kX264 + "bframes=2 ";
const std::string kOpenGop = kX264 + "bframes=3:open-gop=1 ";
const std::string kMpeg = "-g 47 -bf 2 -sc_threshold 1000000000 -c:a mp2";

const std::pair<std::string, std::string> kFilms[] = {
    {"first.mp4", kH264 + "-movflags faststart"},
    {"last.mp4", kOpenGop},
    {"av1.mp4", "-c:v libsvtav1 -preset 12 -crf 44 -g 50 -c:a aac -movflags faststart"},
    {"hevc.mkv", "-c:v libx265 -preset ultrafast -crf 28 -x265-params keyint=50:log-level=error -c:a aac"},
    {"h264.mkv", kH264},
    {"vp9.webm", "-c:v libvpx-vp9 -deadline realtime -cpu-used 8 -row-mt 1 -b:v 1500k -g 50 -c:a libopus"},
    {"mpeg4.avi", "-c:v mpeg4 -q:v 12 " + kMpeg},
    {"mpeg2.ts", "-c:v mpeg2video -q:v 18 " + kMpeg},
    {"openGop.ts", kOpenGop},
    {"fragments.mp4", kH264 + "-movflags frag_keyframe+empty_moov+default_base_moof"},
    {"oldFragments.mp4", kH264 + "-movflags frag_keyframe+empty_moov"},
};

struct Bytes {
    std::int64_t begin;
    std::int64_t end;
};

struct Frame {
    double time; ///< in seconds from the film's beginning
    Bytes bytes;
    std::string picture; ///< as picturePart() has it
};

/// What is true of a finished film.
struct Film {
    std::string name;
    fs::path path;
    std::int64_t size;
    double length;           ///< in seconds
    std::vector<Bytes> head; ///< without which nothing can be read
    bool tellsLength;        ///< in its head
    std::vector<Frame> frames;
};

struct Tally {
    int pictures = 0;
    int possible = 0;
    int right = 0;
    int later = 0; ///< of the right ones: not of the first frame that counts
    int wrong = 0;
    int missed = 0;
    double processorTime = 0; ///< in seconds
    int lengths = 0;
    int rightLengths = 0;
    double worstLength = 0; ///< the largest error, as a part of the length

    void add(const Tally& other) {
        pictures += other.pictures;
        possible += other.possible;
        right += other.right;
        later += other.later;
        wrong += other.wrong;
        missed += other.missed;
        processorTime += other.processorTime;
        lengths += other.lengths;
        rightLengths += other.rightLengths;
        worstLength = std::max(worstLength, other.worstLength);
    }
};

struct Options {
    fs::path folder;
    int maps = 0;
    bool stock = false;
    bool missed = false;
    bool keep = false;
    bool lengths = false;
    std::set<std::string> films;
};

template <typename Number>
Number checked(Number answer, const std::string& what) {
    if (answer < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return answer;
}

/// What a shell command prints.
std::string output(const std::string& command) {
    const ProgramRun run = runProgram({"/bin/sh", "-c", command});
    if (run.status != 0) {
        throw std::runtime_error(command + ": " + run.errors);
    }
    return run.output;
}

/// The JPEG from its first comment on: our program's own says of every picture that its pixels are square.
std::string picturePart(const std::string& jpeg) {
    return jpeg.substr(std::min(jpeg.find("\xff\xfe"), jpeg.size()));
}

std::int64_t bigEndian(const std::string& bytes, std::size_t place, int count) {
    std::int64_t number = 0;
    for (const char byte : bytes.substr(place, static_cast<std::size_t>(count))) {
        number = number << 8 | static_cast<unsigned char>(byte);
    }
    return number;
}

/// Of an MP4: the boxes that tell of its streams.
std::vector<Bytes> boxes(const std::string& bytes) {
    std::vector<Bytes> found;
    for (std::size_t place = 0; place + 16 <= bytes.size();) {
        const std::int64_t shortSize = bigEndian(bytes, place, 4);
        const std::int64_t size = shortSize == 1 ? bigEndian(bytes, place + 8, 8) : shortSize;
        const std::string name = bytes.substr(place + 4, 4);
        if (size < 8) {
            throw std::runtime_error("a box without an end");
        }
        if (name == "ftyp" || name == "moov") {
            found.push_back({static_cast<std::int64_t>(place), static_cast<std::int64_t>(place) + size});
        }
        place += static_cast<std::size_t>(size);
    }
    return found;
}

std::vector<Bytes> headOf(const fs::path& film, const std::string& bytes) {
    const std::string kind = film.extension();
    if (kind == ".mp4") {
        return boxes(bytes);
    }
    if (kind == ".ts") {
        return {};
    }
    const std::string end = kind == ".avi" ? "movi" : "\x1f\x43\xb6\x75";
    return {{0, static_cast<std::int64_t>(bytes.find(end) + (kind == ".avi" ? end.size() : 0))}};
}

/// Where a frame of a transport stream ends that begins at a place: behind the last packet of its stream before the one
/// in which the next frame begins.
std::int64_t endInStream(const std::string& bytes, std::int64_t begin) {
    constexpr std::size_t kPacket = 188;
    const auto stream = [&](std::size_t place) { return bigEndian(bytes, place + 1, 2) & 0x1fff; };
    const auto first = static_cast<std::size_t>(begin);
    std::size_t end = first + kPacket;
    for (std::size_t place = end; place + kPacket <= bytes.size(); place += kPacket) {
        if (stream(place) == stream(first)) {
            if ((bytes[place + 1] & 0x40) != 0) {
                break;
            }
            end = place + kPacket;
        }
    }
    return static_cast<std::int64_t>(end);
}

/// The intra-coded frames in the order in which they are shown, without their pictures.
std::vector<Frame> framesOf(const fs::path& film, const std::string& bytes, double start) {
    std::string table = output("ffprobe -v error -select_streams V:0 -of csv -show_entries "
                               "packet=size,pos:frame=best_effort_timestamp_time,pkt_pos,pict_type " +
                               film.string());
    std::replace(table.begin(), table.end(), ',', ' ');
    const std::int64_t blockHead = film.extension() == ".mkv" || film.extension() == ".webm" ? 4 : 0;
    std::map<std::int64_t, std::int64_t> sizes;
    std::vector<Frame> frames;
    std::istringstream lines(table);
    for (std::string line; std::getline(lines, line);) {
        const std::vector<std::string> row = words(line);
        if (row.size() >= 3 && row[0] == "packet") {
            sizes[std::stoll(row[2])] = std::stoll(row[1]);
        } else if (row.size() >= 4 && row[0] == "frame" && row[3] == "I") {
            const std::int64_t begin = std::stoll(row[2]);
            const std::int64_t end =
                film.extension() == ".ts" ? endInStream(bytes, begin) : begin + blockHead + sizes.at(begin);
            frames.push_back({std::stod(row[1]) - start, {begin + blockHead, end}, ""});
        }
    }
    return frames;
}

/// Gives each frame the picture that stock ffmpeg makes of it with the words of the library's command.
void addPictures(std::vector<Frame>& frames, const fs::path& film, const fs::path& folder) {
    fs::remove_all(folder);
    fs::create_directories(folder);
    std::vector<std::string> argv = frameCommand(kStock, film, 0, folder / "%d.jpeg");
    argv.erase(std::find(argv.begin(), argv.end(), "-vframes"), argv.end() - 1);
    argv.erase(argv.begin() + 1, argv.begin() + 3); // -ss: a seek, even to 0, can leave the first ones out
    const auto more = words("-an -fps_mode passthrough -qscale:v 1");
    argv.insert(argv.end() - 1, more.begin(), more.end());
    runProgram(argv);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        frames[i].picture = picturePart(readFile(folder / (std::to_string(i + 1) + ".jpeg")));
    }
    if (frames.empty() || frames.back().picture.empty() ||
        fs::exists(folder / (std::to_string(frames.size() + 1) + ".jpeg"))) {
        throw std::runtime_error(film.string() + ": stock ffmpeg and ffprobe find other frames");
    }
    fs::remove_all(folder);
}

Film learn(const fs::path& path, bool withPictures) {
    const std::string bytes = readFile(path);
    std::string times =
        output("ffprobe -v error -of csv=p=0 -show_entries format=start_time,duration " + path.string());
    times[times.find(',')] = ' ';
    const std::vector<std::string> startAndLength = words(times);
    Film film = {path.filename(),
                 path,
                 static_cast<std::int64_t>(bytes.size()),
                 std::stod(startAndLength.at(1)),
                 headOf(path, bytes),
                 path.extension() != ".ts" && bytes.find("moof") == std::string::npos,
                 framesOf(path, bytes, std::stod(startAndLength.at(0)))};
    if (withPictures) {
        addPictures(film.frames, path, path.parent_path() / "frames");
    }
    return film;
}

void makeFilm(const fs::path& path, const std::string& encoder) {
    if (!fs::exists(path)) {
        const fs::path unready = path.parent_path() / ("new." + path.filename().string());
        output("SVT_LOG=1 ffmpeg -v error -nostdin " + kSource + encoder + " -y " + unready.string());
        fs::rename(unready, path);
    }
}

constexpr std::array kFills = {"sparse", "preallocated", "zeros"};

/// Which pieces of a film are there.
struct PieceMap {
    std::string name;
    std::int64_t piece;
    std::int64_t phase; ///< the bytes of the first piece that belong to another file
    std::vector<bool> has;
    std::string fill; ///< what takes the place of the others

    [[nodiscard]] bool holds(const Bytes& bytes) const {
        const auto first = has.begin() + (bytes.begin + phase) / piece;
        const auto last = has.begin() + (bytes.end - 1 + phase) / piece;
        return std::find(first, last + 1, false) == last + 1;
    }

    [[nodiscard]] bool holdsHead(const Film& film) const {
        const auto there = [this](const Bytes& bytes) { return holds(bytes); };
        return std::find(has.begin(), has.end(), true) != has.end() &&
               std::all_of(film.head.begin(), film.head.end(), there);
    }
};

PieceMap randomMap(const Film& film, int number) {
    const std::string seed = film.name + " " + std::to_string(number);
    std::seed_seq sequence(seed.begin(), seed.end());
    std::mt19937_64 random(sequence);
    PieceMap map;
    map.piece = std::int64_t{65536} << random() % 4;
    map.phase = static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(map.piece));
    map.has.resize(static_cast<std::size_t>((film.size + map.phase - 1) / map.piece + 1));
    map.fill = kFills[random() % kFills.size()];
    const auto percent = 10 + random() % 81;
    std::generate(map.has.begin(), map.has.end(), [&] { return random() % 100 < percent; });
    map.name = film.name + ", map " + std::to_string(number) + " (" + std::to_string(map.piece >> 10) + " KiB, " +
               std::to_string(percent) + " %, " + map.fill + ")";
    return map;
}

struct Closing {
    ~Closing() { close(descriptor); }
    int descriptor;
};

void fill(int descriptor, std::int64_t size, const std::string& with) {
    checked(ftruncate(descriptor, size), "cannot make a file");
    if (with == "preallocated") {
        checked(fallocate(descriptor, 0, 0, size), "cannot preallocate a file");
    } else if (with == "zeros") {
        static const std::string zeros(1 << 20, '\0');
        for (std::int64_t place = 0; place < size;) {
            const std::int64_t count = std::min<std::int64_t>(size - place, 1 << 20);
            place += checked(pwrite(descriptor, zeros.data(), static_cast<std::size_t>(count), place), "cannot write");
        }
    }
}

/// Nobody reads the file: which holes a file system tells of can depend on it.
void makeFile(const fs::path& path, const Film& film, const PieceMap& map) {
    fs::remove(path);
    const Closing whole = {checked(open(film.path.c_str(), O_RDONLY | O_CLOEXEC), film.path)};
    const Closing part = {checked(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644), path)};
    fill(part.descriptor, film.size, map.fill);
    for (std::size_t i = 0; i < map.has.size(); ++i) {
        const std::int64_t begin = static_cast<std::int64_t>(i) * map.piece - map.phase;
        off_t from = std::max<std::int64_t>(begin, 0);
        off_t to = from;
        const off_t end = std::min(begin + map.piece, film.size);
        while (map.has[i] && from < end) {
            checked(
                copy_file_range(whole.descriptor, &from, part.descriptor, &to, static_cast<std::size_t>(end - from), 0),
                "cannot copy");
        }
    }
}

double childrensTime() {
    rusage usage = {};
    getrusage(RUSAGE_CHILDREN, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

struct Made {
    std::string picture;
    std::string errors;
    double processorTime;
};

/// A worker can outlive its front for a moment. It then becomes a child of this process, and its time counts.
Made makePicture(const std::string& program, const fs::path& film, int second) {
    fs::remove(kPicture);
    const double before = childrensTime();
    const ProgramRun run = runProgram(frameCommand(program, film, second, kPicture));
    while (waitpid(-1, nullptr, 0) > 0) {
    }
    return {picturePart(readFile(kPicture)), run.errors, childrensTime() - before};
}

/// The frames that count for a second, the first one first.
std::vector<const Frame*> framesFor(int second, const Film& film, const PieceMap& map) {
    constexpr double kSame = 0.0005; // that many seconds apart
    std::vector<const Frame*> frames;
    for (const Frame& frame : film.frames) {
        if (frame.time > second - kSame && frame.time < second + kLatest + kSame && map.holds(frame.bytes)) {
            frames.push_back(&frame);
        }
    }
    return frames;
}

std::string whatIsShown(const Film& film, const PieceMap& map, const std::string& picture) {
    for (const Frame& frame : film.frames) {
        if (frame.picture == picture) {
            return "the frame at " + std::to_string(frame.time) + " s, which is " +
                   (map.holds(frame.bytes) ? "" : "not all ") + "there";
        }
    }
    return "no intra-coded frame of the film";
}

std::array<int, 5> secondsOf(const Film& film) {
    const int step = static_cast<int>(film.length) / 5;
    return {1, step + 1, 2 * step + 1, 3 * step + 1, 4 * step + 1};
}

/// What is told on standard error.
struct Say {
    bool wrong;
    bool missed;
};

/// Makes the five pictures of an unfinished film.
Tally tryPictures(const std::string& program, const fs::path& path, const Film& film, const PieceMap& map, Say say) {
    Tally tally;
    for (const int second : secondsOf(film)) {
        const Made made = makePicture(program, path, second);
        const std::vector<const Frame*> frames = framesFor(second, film, map);
        const auto shown = std::find_if(frames.begin(), frames.end(),
                                        [&](const Frame* frame) { return frame->picture == made.picture; });
        const bool right = shown != frames.end();
        const bool possible = right || (!frames.empty() && map.holdsHead(film));
        const bool missed = possible && made.picture.empty();
        const bool wrong = !right && !made.picture.empty();
        tally.add({1, possible, right, right && shown != frames.begin(), wrong, missed, made.processorTime});
        if (wrong && say.wrong) {
            std::fprintf(stderr, "%s, second %d: wrong picture: %s\n", map.name.c_str(), second,
                         whatIsShown(film, map, made.picture).c_str());
        } else if (missed && say.missed) {
            std::fprintf(stderr, "%s, second %d: missed the frame at %.3f s: %s", map.name.c_str(), second,
                         frames.front()->time, made.errors.c_str());
        }
    }
    return tally;
}

Tally tryLength(const fs::path& path, const Film& film, const PieceMap& map) {
    Tally tally;
    if (!map.holdsHead(film)) {
        return tally;
    }
    const ProgramRun run = runProgram({kLengthProgram, "--path", path});
    double length = 0;
    (void)std::sscanf(run.output.c_str(), "{\"duration\": %lf}", &length);
    const double error = std::abs(length - std::floor(film.length)); // it drops what is left of the last second
    tally.lengths = 1;
    const bool exact =
        film.tellsLength || (map.holds({0, kOutermost}) && map.holds({film.size - kOutermost, film.size}));
    tally.rightLengths = error <= (exact ? 1 : std::max(1.0, kNearLength * film.length)) ? 1 : 0;
    tally.worstLength = error / film.length;
    if (tally.rightLengths == 0) {
        std::fprintf(stderr, "%s: length %.0f s instead of %s%.0f s%s", map.name.c_str(), length,
                     exact ? "exactly " : "", film.length, run.errors.empty() ? "\n" : (": " + run.errors).c_str());
    }
    return tally;
}

/// The measure itself: of the finished film our program makes the pictures of the first frames.
void expectReferences(const Film& film) {
    const fs::path path = kTask / "whole.film";
    fs::copy_file(film.path, path, fs::copy_options::overwrite_existing);
    const PieceMap whole = {film.name + ", the whole", film.size, 0, {true}, ""};
    const Tally tally = tryPictures(kOurs, path, film, whole, {true, true});
    fs::remove(path);
    if (tally.right != tally.pictures || tally.later != 0) {
        throw std::runtime_error(film.name + ": the pictures of the finished film are not stock ffmpeg's");
    }
}

void print(const std::string& name, const Tally& ours, const Tally& stock, bool withStock) {
    std::printf("| %s | %d | %d | %d | %d | %d | %d of %d | %.1f %% | %.3f |", name.c_str(), ours.possible, ours.right,
                ours.wrong, ours.missed, ours.later, ours.rightLengths, ours.lengths, 100 * ours.worstLength,
                ours.processorTime / std::max(ours.pictures, 1));
    if (withStock) {
        std::printf(" %d | %d | %.3f |", stock.right, stock.wrong, stock.processorTime / std::max(stock.pictures, 1));
    }
    std::printf("\n");
    (void)std::fflush(stdout);
}

/// Whether a film passes.
bool tryFilm(const Film& film, const Options& options, Tally& all, Tally& allOfStock) {
    Tally ours;
    Tally stock;
    if (!options.lengths) {
        expectReferences(film);
    }
    for (int number = 0; number < options.maps; ++number) {
        const PieceMap map = randomMap(film, number);
        const fs::path path = kTask / (film.name + ".part");
        makeFile(path, film, map);
        ours.add(tryLength(path, film, map));
        const Tally pictures = options.lengths ? Tally() : tryPictures(kOurs, path, film, map, {true, options.missed});
        ours.add(pictures);
        if (options.stock) {
            stock.add(tryPictures(kStock, path, film, map, {false, false}));
        }
        if (options.keep && pictures.wrong != 0) {
            fs::create_directories(options.folder / "kept");
            fs::rename(path, options.folder / "kept" / (std::to_string(number) + "." + path.filename().string()));
        }
        fs::remove(path);
    }
    print(film.name, ours, stock, options.stock);
    all.add(ours);
    allOfStock.add(stock);
    return ours.right >= kRightOfFilm * ours.possible;
}

bool tryFilms(const Options& options) {
    std::printf("| film | possible | right | wrong | missed | not the first | lengths | worst length | CPU s |%s\n"
                "|---|---|---|---|---|---|---|---|---|%s\n",
                options.stock ? " stock: right | wrong | CPU s |" : "", options.stock ? "---|---|---|" : "");
    Tally all;
    Tally allOfStock;
    bool passed = true;
    for (const auto& [name, encoder] : kFilms) {
        if (options.films.empty() || options.films.count(name) != 0) {
            makeFilm(options.folder / name, encoder);
            passed = tryFilm(learn(options.folder / name, !options.lengths), options, all, allOfStock) && passed;
        }
    }
    print("all", all, allOfStock, options.stock);
    return passed && all.wrong == 0 && all.right >= kRightOfAll * all.possible &&
           all.rightLengths >= kRightLengths * all.lengths;
}

bool isFilm(const std::string& word) {
    return std::any_of(std::begin(kFilms), std::end(kFilms), [&](const auto& film) { return film.first == word; });
}

/// Without maps when the command line is none.
Options optionsOf(const std::vector<std::string>& line) {
    Options options;
    if (line.size() < 2 || line[1].find_first_not_of("0123456789") != std::string::npos || line[1].size() > 6) {
        return options;
    }
    options.folder = line[0];
    for (std::size_t i = 2; i < line.size(); ++i) {
        options.stock = options.stock || line[i] == "stock";
        options.missed = options.missed || line[i] == "missed";
        options.keep = options.keep || line[i] == "keep";
        options.lengths = options.lengths || line[i] == "lengths";
        if (isFilm(line[i])) {
            options.films.insert(line[i]);
        } else if (line[i] != "stock" && line[i] != "missed" && line[i] != "keep" && line[i] != "lengths") {
            return options;
        }
    }
    options.maps = line[1].empty() ? 0 : std::stoi(line[1]);
    return options;
}

} // namespace

int main(int argc, char** argv) try {
    const Options options = optionsOf({argv + 1, argv + argc});
    if (options.maps == 0) {
        (void)std::fputs("usage: unfinishedFilms FOLDER MAPS [stock] [missed] [keep] [lengths] [FILM...]\n", stderr);
        return 2;
    }
    checked(prctl(PR_SET_CHILD_SUBREAPER, 1), "cannot await what programs leave");
    fs::create_directories(options.folder);
    fs::create_directories(kPicture.parent_path());
    return tryFilms(options) ? 0 : 1;
} catch (const std::exception& error) {
    (void)std::fprintf(stderr, "unfinishedFilms: %s\n", error.what());
    return 1;
}
