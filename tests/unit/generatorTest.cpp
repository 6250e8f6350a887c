// The class on a fake platform: results, messages and questions to the neighbours of every stage.

#include "fakePlatform.h"
#include "tests/host/caller.h"
#include "tests/host/sandbox.h"
#include "thumbnail/thumbnailGenerator.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>

namespace {

using Indices = std::vector<int>;

constexpr auto kVideo = VEXODL_MEDIA_TYPE_VIDEO;
constexpr auto kPhoto = VEXODL_MEDIA_TYPE_PHOTO;

const std::string kFilm = R"({"name":"a.mkv","length":52428800,"bytesCompleted":52428800})";
const std::string kPicture = R"({"name":"b.jpg","length":10,"bytesCompleted":10})";
const std::string kHalfPicture = R"({"name":"c.png","length":1000,"bytesCompleted":500})";

/// A torrent item with these files, all wanted.
Json::Value item(const Texts& files) {
    Json::Value torrent = json(R"({"files":[],"fileStats":[]})");
    for (const std::string& file : files) {
        torrent["files"].append(json(file));
        torrent["fileStats"].append(json(R"({"wanted":true})"));
    }
    return torrent;
}

/// The engine reports a torrent with these files.
void report(const Texts& files) {
    fake.reply["arguments"]["torrents"][0] = item(files);
}

Json::Value rowOf(Thumbnail thumbnail) {
    Json::Value row("replaced");
    thumbnail.toJson(row);
    return row;
}

/// What the rows hold under a name after a run that succeeds.
Indices recorded(const char* name) {
    EXPECT_EQ(ThumbnailGenerator(12, true).generate(), 0);
    Indices all;
    for (const Json::Value& row : fake.stored["data"]) {
        all.push_back(row[name].asInt());
    }
    return all;
}

using Step = std::function<int(ThumbnailGenerator&)>;

/// A step that makes one thumbnail, in vain: the record stays as it was.
Step making(const Thumbnail& planned) {
    return [planned](ThumbnailGenerator& generator) {
        generator.taskFiles = item({kFilm, kPicture, kHalfPicture});
        Thumbnail thumbnail = planned;
        const int result = generator.generateThumbnail(thumbnail);
        EXPECT_EQ(rowOf(thumbnail), rowOf(planned));
        return result;
    };
}

struct GeneratorTest : testing::Test {
    GeneratorTest() { reset(); }

    /// Neighbours with whom a run succeeds.
    void reset() {
        fake = {sandbox.root};
        report({kFilm, kPicture});
    }

    /// Takes a step that fails where the neighbours answer otherwise, and says why with the debug flag alone.
    void fails(
        const std::string& name, const Step& step, const Texts& messages, const std::function<void()>& answer = [] {}) {
        for (const bool debug : {true, false}) {
            SCOPED_TRACE(name + (debug ? ", debug" : ""));
            reset();
            answer();
            ThumbnailGenerator generator(12, debug);
            EXPECT_EQ(step(generator), -1);
            EXPECT_EQ(fake.messages, debug ? messages : Texts());
        }
    }

    Sandbox sandbox;
    const std::string task = sandbox / "12";
    const std::string work = task + "/vexodlthumbnail";
};

Indices ranked(const Json::Value& torrent, Indices candidates, VEXODL_MEDIA_TYPE type) {
    ThumbnailGenerator generator(12, true);
    generator.taskFiles = torrent;
    EXPECT_EQ(generator.getNeedThumbnail(candidates, type), 0);
    return candidates;
}

} // namespace

TEST(ThumbnailTest, GoesToARowAndComesBack) {
    Json::Value row = json(R"({"kept":1,"thumbnail_id":5,"task_id":12,"file_index":3,"thumbnail_index":2,
        "thumbnail_second":7,"thumbnail_filename":"3_2.jpeg","file_path":"","create_time":1700000000})");
    Json::Value copy = json(R"({"kept":1,"task_id":"old"})");
    Thumbnail(row).toJson(copy);
    EXPECT_EQ(copy, row);
    for (const char* text : {"5", R"({"thumbnail_id":1.5,"task_id":"12","file_index":true,"create_time":{},
             "thumbnail_second":4294967296,"thumbnail_filename":5,"file_path":"x"})"}) {
        row = json(text);
        EXPECT_EQ(rowOf(Thumbnail(row)), rowOf({-1, -1, -1, "", kVideo})) << text;
    }
}

TEST_F(GeneratorTest, CountsThePlanOfTheTorrentThatTheEngineReports) {
    fake.stored["data"].append(rowOf({12, 0, 0, "a.mkv", kVideo})); // counts, too
    ThumbnailGenerator generator(12, true);
    EXPECT_EQ(generator.getTotalThumbnailNumber(), 6);
    EXPECT_EQ(fake.calls.front(), "torrent|12|id|name|files|fileStats");
    fake.reply = Json::nullValue;
    EXPECT_EQ(generator.getTotalThumbnailNumber(), -1);
    EXPECT_EQ(generator.taskFiles, item({kFilm, kPicture})); // what it had stays
}

TEST_F(GeneratorTest, ListsVideosAndPhotosByExtension) {
    ThumbnailGenerator generator(12, true);
    generator.taskFiles = json(R"({"files":[{"name":"movie.MKV"},{},5,{"name":7},{"name":"none"},{"name":".mp4"},
        {"name":"end."},{"name":"Season.1/episode"},{"name":"sub.mkv"},{"name":"a.jpg"}]})");
    Indices list = {7}; // keeps what it holds
    EXPECT_EQ(generator.getVideoFile(list), 0);
    EXPECT_EQ(fake.calls, (Texts{"video|MKV", "subtitle|movie.MKV", "video|mp4", "subtitle|.mp4", "video|",
                                 "video|1/episode", "video|mkv", "subtitle|sub.mkv", "video|jpg"}));
    EXPECT_EQ(generator.getPhotoFile(list), 0);
    EXPECT_EQ(list, (Indices{7, 0, 5, 9}));
}

TEST_F(GeneratorTest, ChoosesTheFiveLargestWanted) {
    Texts files;
    for (const char* size : {"52428800", "52428809", "4294967296", "52428799", "52428809", "52428801", "52428805"}) {
        files.push_back(std::string(R"({"length":)") + size + "}");
    }
    EXPECT_EQ(ranked(item(files), {0, 1, 2, 3, 4, 5, 6}, kVideo), (Indices{2, 4, 1, 6, 5}));
    EXPECT_EQ(ranked(item(files), {3, 0, 99, -1}, kPhoto), (Indices{0, 3}));
    // Values of every shape: what does not convert is no length, or not wanted.
    const Json::Value shapes = json(R"({"files":[{"length":"9"},{"length":1e300},{"length":18446744073709551615},
        {"length":9223372036854775808.0},{"length":7.9},{"length":true},5,{"length":99}],
        "fileStats":[{"wanted":true},{"wanted":1},{"wanted":true},{"wanted":0.5},{"wanted":true},{"wanted":true},
        {"wanted":true},{"wanted":"true"}]})");
    EXPECT_EQ(ranked(shapes, {0, 1, 2, 3, 4, 5, 6, 7}, kPhoto), (Indices{4, 5, 6, 3, 2}));
    EXPECT_EQ(ranked(json(R"({"files":[{"length":9}],"fileStats":{"0":{"wanted":true}}})"), {0}, kPhoto), Indices());
}

TEST_F(GeneratorTest, SpreadsFiveFramesOverAVideo) {
    report({kFilm});
    const std::pair<const char*, Indices> films[] = {
        {"3604", {1, 721, 1441, 2161, 2881}},
        {"1", {1, 1, 1, 1, 1}},
        {"2147483647", {1, 429496730, 858993459, 1288490188, 1717986917}},
    };
    for (const auto& [duration, seconds] : films) {
        fake.stored = {};
        fake.helperOutput = std::string(R"({"duration":)") + duration + "}";
        EXPECT_EQ(recorded("thumbnail_second"), seconds);
    }
}

TEST_F(GeneratorTest, ReadsAnUnfinishedVideoUnderItsNameOnDisk) {
    const std::pair<const char*, const char*> states[] = {
        {"100", "a.mkv.part"}, {"52428801", "a.mkv.part"}, {"52428800", "a.mkv"}, {"100.5", "a.mkv"}}; // not known
    for (const auto& [there, path] : states) {
        ThumbnailGenerator generator(12, true);
        generator.taskFiles =
            item({kHalfPicture, R"({"name":"a.mkv","length":52428800,"bytesCompleted":)" + std::string(there) + "}"});
        std::vector<Thumbnail> plan;
        EXPECT_EQ(generator.getThumbnailList(plan), 0);
        EXPECT_EQ(plan.front().file_path, path);
        EXPECT_EQ(plan.back().file_path, "c.png"); // behind the videos, its name as it is
    }
}

TEST_F(GeneratorTest, MakesWhatIsNotRecorded) {
    report({kFilm});
    fake.stored = json(R"({"data":[{"task_id":12,"file_index":0,"thumbnail_index":3},
        {"task_id":12,"file_index":0,"thumbnail_index":2},{"task_id":12,"file_index":9,"thumbnail_index":1},
        {"task_id":13,"file_index":0,"thumbnail_index":1}]})");
    EXPECT_EQ(recorded("thumbnail_index"), (Indices{3, 2, 1, 1, 0, 1, 4}));
}

TEST_F(GeneratorTest, SaysWhyAThumbnailFails) {
    const Step frame = making({12, 0, 2, "a.mkv", kVideo});
    const std::string noInfo = "Failed to get mediaInfo";
    const Texts noFrame = {"Failed to run ffmpeg [No such file or directory] return 69",
                           "Failed to generate thumbnail [" + work + "/0_2.jpeg] from [" + task + "/a.mkv] by ffmpep"};
    fails("no download folder", frame, {"Failed to get tmp download dir"}, [] { fake.results["exec"] = 0; });
    fails("no work folder", frame, {"Failed to do make directory " + work}, [] { fake.results["mkdir"] = -1; });
    fails("no helper", frame, {"Failed to get duration", noInfo}, [] { fake.results["run"] = 1; });
    fails("no output", frame, {"Failed to get output of duration", noInfo}, [] { fake.helperOutput = ""; });
    fails("no JSON", frame, {"Failed to get mediaInfo json from string", noInfo}, [] { fake.helperOutput = "{\""; });
    fails("no frame", frame, noFrame, [] { fake.results["execv"] = 69; });
    for (const char* text : {"[1]", "7", "{}", R"({"duration":"9"})", R"({"duration":0})", R"({"duration":-5})",
                             R"({"duration":4294967297})", R"({"duration":9.5})", R"({"duration":true})"}) {
        fails(text, frame, {"Duration is invalid"}, [&] { fake.helperOutput = text; });
    }
    const Step photo = making({12, 1, 0, "b.jpg", kPhoto});
    const std::string noPhoto =
        "Failed to generate thumbnail [" + work + "/1_0.jpeg] from [" + task + "/b.jpg] by convert-thumb";
    fails("no photo", photo, {"Failed to convert-thumb retcode: -2.", noPhoto}, [] { fake.results["execv"] = -2; });
    fails("an empty picture", photo, {"Not a valid thumbnail image"}, [] { fake.picture = ""; });
    EXPECT_FALSE(std::filesystem::exists(work + "/1_0.jpeg"));
    fails("an unfinished photo", making({12, 2, 0, "c.png", kPhoto}), {});
    fails("no such photo", making({12, -1, 0, "b.jpg", kPhoto}), {});
    fails("no kind", making({12, 0, 0, "a.mkv", VEXODL_MEDIA_TYPE(2)}), {"Not supported type 2"});
    const Step secondZero = [](auto& it) { return it.generateThumbnailByFFMPEG("in", "/dev/null", 0); };
    fails("second 0", secondZero, {"Failed to set second 0"});
}

TEST_F(GeneratorTest, MakesAndRecordsAFrameAndAPhoto) {
    const std::string volume = "exec|/usr/vexo/bin/vexofstool|--check-volume-writable|" + sandbox.root;
    const std::string folder = "mkdir|" + work + "|1|-1|-1|755";
    const std::string helper = "/var/packages/Quellbox/target/bin/vexodlgetduration";
    const std::string duration = "run|1|1|" + helper + "|" + helper + "|--path|" + task + "/a.mkv";
    const std::string frame =
        "execv|1|/usr/vexo/bin/ffmpeg|/usr/vexo/bin/ffmpeg|-ss|5|-timelimit|300|-i|" + task + "/a.mkv|-vf|" +
        R"(select=eq(pict_type\,I),scale='if(gt(a,1),min(1080,iw),-1)':'if(gt(a,1),-1,min(1080,ih))')" +
        "|-y|-vframes|1|-an|-qscale:v|1|-f|mjpeg|" + work + "/0_2.jpeg";
    const std::string photo = "execv|1|/usr/vexo/bin/convert-thumb|/usr/vexo/bin/convert-thumb|" + task +
                              "/b.jpg|-thumbnail|1024x1024>|-quality|90|-strip|-flatten|-colorspace|sRGB|" + work +
                              "/1_0.jpeg";
    for (const std::string mode : {"", "|--debug_mode"}) {
        reset();
        std::vector<Thumbnail> plan = {{12, 0, 2, "a.mkv", kVideo},
                                       {13, 1, 0, "b.jpg", kPhoto}}; // 13: the row's task, not the folder's
        ThumbnailGenerator generator(12, !mode.empty());
        generator.taskFiles = item({kFilm, kPicture});
        EXPECT_EQ(generator.generateThumbnailByList(plan), 0);
        EXPECT_EQ(fake.messages, Texts());
        EXPECT_EQ(fake.calls,
                  (Texts{volume, folder, duration + mode, frame, "insert", volume, folder, photo, "insert"}));
        EXPECT_EQ(fake.stored["data"], json(R"([{"thumbnail_id":-1,"task_id":12,"file_index":0,"thumbnail_index":2,
            "thumbnail_second":5,"thumbnail_filename":"0_2.jpeg","file_path":"a.mkv","create_time":1700000000},
            {"thumbnail_id":-1,"task_id":13,"file_index":1,"thumbnail_index":0,
            "thumbnail_second":0,"thumbnail_filename":"1_0.jpeg","file_path":"b.jpg","create_time":1700000000}])"));
    }
}

TEST_F(GeneratorTest, TellsWhichStageFailed) {
    const Texts ask = {"Failed to get torrent file list", "Failed to get file list of task"};
    const Texts first = {"Failed to get first torrent item", ask.back()};
    const Texts plan = {"Wrong jsontorrent format", "Failed to get list of video files", "Failed to getThumbnailList"};
    const Texts filter = {"Failed to get all thumbnail info", "Failed to get existing thumbnail list",
                          "Failed to remove existed thumbnail"};
    const Texts make = {"Failed to generate thumbnail, taskId:12, fileIndex:2, thumbnailIndex:0",
                        "Failed to add thumbnail to db, taskId:12, fileIndex:1, thumbnailIndex:0",
                        "Failed to generate all thumbnail 2(0)", "Failed to generate thumbnail"};
    fails("no engine", &ThumbnailGenerator::generate, ask, [] { fake.results["torrent"] = 1; });
    for (const char* text : {"null", "[]", "7", R"({"arguments":5})", R"({"arguments":{"torrents":{"0":{}}}})",
                             R"({"arguments":{"torrents":"x"}})", R"({"arguments":{"torrents":[]}})"}) {
        fails(text, &ThumbnailGenerator::generate, first, [&] { fake.reply = json(text); });
    }
    for (const char* text : {"null", "[]", "5", "{}", R"({"files":{"0":1}})", R"({"files":[]})"}) {
        fails(text, &ThumbnailGenerator::generate, plan, [&] { fake.reply["arguments"]["torrents"][0] = json(text); });
    }
    fails("no database", &ThumbnailGenerator::generate, filter, [] { fake.results["rows"] = -1; });
    fails("an unfinished photo, a refused row", &ThumbnailGenerator::generate, make, [] {
        report({"{}", kPicture, kHalfPicture});
        fake.results["insert"] = -1;
    });
}

// Each platform call of a whole run fails once: the run says so, no row is lost or stands for a missing picture, and
// the next run makes what is missing.
TEST_F(GeneratorTest, SurvivesTheFailureOfEveryCall) {
    const int planned = ThumbnailGenerator(12, true).getTotalThumbnailNumber();
    int calls = 0;
    for (bool hasFailed = true; hasFailed; calls += hasFailed ? 1 : 0) {
        SCOPED_TRACE(calls);
        std::filesystem::remove_all(task);
        reset();
        fake.failingCall = calls;
        ThumbnailGenerator generator(12, false);
        const int result = generator.generate();
        hasFailed = fake.failingCall < 0;
        EXPECT_EQ(result, hasFailed ? -1 : 0);
        for (const Json::Value& row : fake.stored["data"]) {
            EXPECT_TRUE(std::filesystem::exists(work + "/" + row["thumbnail_filename"].asString()));
        }
        fake.failingCall = -1;
        EXPECT_EQ(generator.generate(), 0);
        EXPECT_EQ(static_cast<int>(fake.stored["data"].size()), planned);
    }
    EXPECT_EQ(calls, 2 + 5 * (planned - 1) + 4); // the engine, the rows, five for a frame, four for the photo
}

// A thread of a service may have a small stack, and may be cancelled while it is inside.
TEST_F(GeneratorTest, RunsOnASmallStackAndOutlivesACancellation) {
    fake.helperOutput = std::string(100000, '[');
    int result = 0;
    int state = PTHREAD_CANCEL_DISABLE;
    onSmallStack([&] {
        pthread_cancel(pthread_self());
        result = ThumbnailGenerator(12, false).generate();
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
    });
    EXPECT_EQ(state, PTHREAD_CANCEL_ENABLE); // the request, still pending, would be taken now
    EXPECT_EQ(result, -1);
    EXPECT_EQ(fake.stored["data"].size(), 1U); // the photo; no video has a duration
}
