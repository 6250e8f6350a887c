// The class on a fake platform: results, messages and questions to the neighbours of every stage, with the debug flag
// on and off.

#include "fakePlatform.h"
#include "tests/host/caller.h"
#include "tests/host/sandbox.h"
#include "thumbnail/thumbnailGenerator.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <ctime>
#include <functional>

namespace {

using Texts = std::vector<std::string>;
constexpr auto kVideo = VEXODL_MEDIA_TYPE_VIDEO;
constexpr auto kPhoto = VEXODL_MEDIA_TYPE_PHOTO;
const std::string kDebugMode = "|--debug_mode"; ///< of the calls, where the debug flag is set

// One row a case, also where that is a long line.
// clang-format off

/// What a test does, and all that comes of it: messages (with the debug flag set, without their source) and calls.
struct Case {
    std::string name;
    std::function<void(ThumbnailGenerator&)> arrange;
    std::function<int(ThumbnailGenerator&)> act;
    int result;
    std::string messages, calls = "any";
};

#define SET(...) [=]([[maybe_unused]] ThumbnailGenerator& generator) { __VA_ARGS__; }
#define CALL(...) [=](ThumbnailGenerator& generator) { return generator.__VA_ARGS__; }

std::string number(long long value) { return std::to_string(value); }
std::string file(const std::string& name, long long length, long long completed) {
    return R"({"name":")" + name + R"(","length":)" + number(length) + R"(,"bytesCompleted":)" + number(completed) + "}";
}
std::string row(int fileIndex, int index) {
    return R"({"task_id":12,"file_index":)" + number(fileIndex) + R"(,"thumbnail_index":)" + number(index) + "}";
}

/// A torrent item with these files, all wanted.
Json::Value item(const Texts& files) {
    Json::Value torrent = json(R"({"files":[],"fileStats":[]})");
    for (const std::string& text : files) {
        torrent["files"].append(json(text));
        torrent["fileStats"].append(json(R"({"wanted":true})"));
    }
    return torrent;
}

/// The engine reports a torrent with these files.
void report(const Texts& files) {
    fake.reply["arguments"]["torrents"][0] = item(files);
}

const std::string kFilm = file("a.mkv", 52428800, 52428800), kPicture = file("b.jpg", 10, 10);
const Texts kSomeTask = {kFilm, kPicture, file("c.png", 1000, 500)};

Thumbnail planned(int fileIndex, int index, VEXODL_MEDIA_TYPE type = kVideo) {
    return {12, fileIndex, index, type == kPhoto ? "b.jpg" : "a.mkv", type};
}

struct GeneratorTest : testing::Test {
    GeneratorTest() { reset(); }

    void reset() {
        fake = {sandbox.root};
        report(kSomeTask);
        indices = {7};
    }

    void check(const std::vector<Case>& cases) {
        for (const Case& each : cases) {
            for (const bool debug : {true, false}) {
                SCOPED_TRACE(each.name + (debug ? ", debug" : ""));
                reset();
                ThumbnailGenerator generator(12, debug);
                generator.taskFiles = item(kSomeTask);
                each.arrange(generator);
                EXPECT_EQ(each.act(generator), each.result);
                EXPECT_EQ(fake.messages, debug ? each.messages : "");
                if (each.calls != "any") {
                    std::string calls = each.calls;
                    calls.erase(debug ? calls.size() : std::min(calls.size(), calls.find(kDebugMode)), kDebugMode.size());
                    EXPECT_EQ(fake.calls, calls);
                }
            }
        }
    }

    Sandbox sandbox;
    const std::string task = sandbox / "12/";
    std::vector<int> indices;
};

std::vector<int> ranked(const Json::Value& torrent, std::vector<int> indices, VEXODL_MEDIA_TYPE type) {
    ThumbnailGenerator generator(12, false);
    generator.taskFiles = torrent;
    EXPECT_EQ(generator.getNeedThumbnail(indices, type), 0);
    EXPECT_EQ(generator.taskFiles, torrent);
    return indices;
}

} // namespace

TEST(ThumbnailTest, GoesToARowAndComesBack) {
    Thumbnail thumbnail(12, 3, 2, "Movies/a.mkv", kPhoto);
    thumbnail.setThumbnail("3_2.jpeg", 7, 1700000000);
    Json::Value row = json(R"({"kept":1,"task_id":"old"})");
    thumbnail.toJson(row);
    EXPECT_EQ(row, json(R"({"kept":1,"thumbnail_id":-1,"task_id":12,"file_index":3,"thumbnail_index":2,"thumbnail_second":7,
        "thumbnail_filename":"3_2.jpeg","file_path":"Movies/a.mkv","create_time":1700000000})"));
    Json::Value again("not an object");
    Thumbnail(row).toJson(again);
    EXPECT_EQ(again, json(R"({"thumbnail_id":-1,"task_id":12,"file_index":3,"thumbnail_index":2,"thumbnail_second":7,
        "thumbnail_filename":"3_2.jpeg","file_path":"","create_time":1700000000})"));
}

TEST(ThumbnailTest, ReadsARowOfAnyShape) {
    for (const char* text : {"5", "null", "[1]", R"("row")", R"({"task_id":"12","file_index":true,"thumbnail_index":null,
             "thumbnail_second":4294967296,"thumbnail_filename":5,"create_time":{},"file_path":"x"})"}) {
        Json::Value row = json(text), back;
        Thumbnail(row).toJson(back);
        EXPECT_EQ(back, json(R"({"thumbnail_id":-1,"task_id":-1,"file_index":-1,"thumbnail_index":-1,
            "thumbnail_second":-1,"thumbnail_filename":"","file_path":"","create_time":-1})")) << text;
        EXPECT_EQ(row, json(text));
    }
}

TEST_F(GeneratorTest, FetchesTheFirstTorrent) {
    const auto fetch = [](ThumbnailGenerator& generator) {
        const int result = generator.getTaskFileList(99);
        EXPECT_EQ(generator.taskFiles, result < 0 ? item(kSomeTask) : "kept all the same");
        return result;
    };
    const Json::Value several = json(R"({"arguments":{"torrents":["kept all the same",5]}})");
    check({{"several torrents", SET(fake.reply = several), fetch, 0, "", R"(torrent|99|["id","name","files","fileStats"])"},
           {"positive result", SET(fake.reply = several; fake.results["torrent"] = 1), fetch, -1,
            "Failed to get torrent file list"}});
    for (const char* text : {"null", "[]", "7", R"({"arguments":5})", R"({"arguments":{"torrents":{"0":{}}}})",
                             R"({"arguments":{"torrents":"x"}})", R"({"arguments":{"torrents":[]}})"}) {
        check({{text, SET(fake.reply = json(text)), fetch, -1, "Failed to get first torrent item"}});
    }
}

TEST_F(GeneratorTest, ClassifiesByExtension) {
    for (const char* text : {"null", "[]", "5", "{}", R"({"files":{"0":1}})", R"({"files":[]})"}) {
        const auto shape = SET(generator.taskFiles = json(text));
        check({{text, shape, CALL(getVideoFile(indices)), -1, "Wrong jsontorrent format"},
               {text, shape, CALL(getPhotoFile(indices)), -1, "Wrong jsontorrent format"}});
        EXPECT_EQ(indices, std::vector<int>{7});
    }
    const auto names = SET(generator.taskFiles = json(R"({"files":[{"name":"movie.MKV"},{},5,{"name":7},{"name":"none"},
        {"name":".mp4"},{"name":"x.tar.gz"},{"name":"end."},{"name":"Season.1/episode"},{"name":"sub.mkv"},{"name":"a.jpg"}]})"));
    check({{"videos", names, CALL(getVideoFile(indices)), 0, "", "video|MKV;subtitle|movie.MKV;video|mp4;subtitle|.mp4;"
            "video|gz;video|;video|1/episode;video|mkv;subtitle|sub.mkv;video|jpg"}});
    EXPECT_EQ(indices, (std::vector<int>{7, 0, 5}));
    check({{"photos", names, CALL(getPhotoFile(indices)), 0, ""}});
    EXPECT_EQ(indices, (std::vector<int>{7, 10}));
}

TEST_F(GeneratorTest, RanksCandidates) {
    check({{"no candidates", SET(indices.clear()), CALL(getNeedThumbnail(indices, kVideo)), -1, "Bad parameter"}});
    Texts files;
    for (const long long length : {52428800LL, 52428809LL, 6000000000LL, 52428799LL, 52428809LL, 52428801LL, 5000000000LL}) {
        files.push_back(file("v", length, 0));
    }
    EXPECT_EQ(ranked(item(files), {0, 1, 2, 3, 4, 5, 6}, kVideo), (std::vector<int>{2, 6, 4, 1, 5}));
    EXPECT_EQ(ranked(item(files), {3, 5, 1, 0}, kVideo), (std::vector<int>{1, 5, 0}));
    EXPECT_EQ(ranked(item(files), {3, 0, 99, -1}, kPhoto), (std::vector<int>{0, 3}));
    // Values of every shape: what does not convert is no length, or not wanted.
    EXPECT_EQ(ranked(json(R"({"files":[{"length":"9"},{"length":1e300},{"length":18446744073709551615},
        {"length":9223372036854775808.0},{"length":7.9},{"length":true},5,{"length":99}],"fileStats":[{"wanted":true},
        {"wanted":1},{"wanted":true},{"wanted":0.5},{"wanted":true},{"wanted":true},{"wanted":true},{"wanted":"true"}]})"),
        {0, 1, 2, 3, 4, 5, 6, 7}, kPhoto), (std::vector<int>{4, 5, 6, 3, 2}));
    EXPECT_EQ(ranked(json(R"({"files":[{"length":9}],"fileStats":{"0":{"wanted":true}}})"), {0}, kPhoto), std::vector<int>());
}

TEST_F(GeneratorTest, RanksCandidatesFarApart) {
    Json::Value torrent = item(Texts(400, "{}"));
    for (int index = 0; index < 400; ++index) { // every third is wanted
        torrent["files"][index]["length"] = index * 149 % 400;
        torrent["fileStats"][index]["wanted"] = index % 3 == 0;
    }
    const struct { int first; int step; std::vector<int> best; } cases[] = {
        {0, 1, {51, 102, 153, 204, 255}}, {399, -1, {51, 102, 153, 204, 255}}, {0, 7, {357, 126, 252, 21, 378}},
        {0, 39, {351, 273, 195, 117, 39}}, {399, -39, {204, 126, 48, 399, 321}}};
    for (const auto& each : cases) {
        std::vector<int> candidates;
        for (int index = each.first; index >= 0 && index < 400; index += each.step) {
            candidates.push_back(index);
        }
        EXPECT_EQ(ranked(torrent, candidates, kPhoto), each.best) << each.first << " and every " << each.step;
    }
}

TEST_F(GeneratorTest, PlansAndCounts) {
    const auto count = CALL(getTotalThumbnailNumber());
    Texts many(7, kFilm);
    many.insert(many.end(), 7, kPicture);
    check({{"one video and two photos", SET(), count, 7, ""},
           {"everything recorded", SET(fake.stored["data"].append(json(row(1, 0)))), count, 7, ""},
           {"the largest plan", SET(report(many)), count, 30, ""},
           {"a small video", SET(report({file("v.mkv", 5, 5), kPicture})), count, 1, ""},
           {"nothing of interest", SET(report({file("readme.txt", 5, 5)})), count, 0, ""},
           {"nothing wanted", SET(fake.reply["arguments"]["torrents"][0].removeMember("fileStats")), count, 0, ""},
           {"no engine", SET(fake.results["torrent"] = 1), count, -1, "Failed to get torrent file list;Failed to get file list of task"},
           {"no files", SET(report({})), count, -1,
            "Wrong jsontorrent format;Failed to get list of video files;Failed to getThumbnailList"}});

    const std::pair<std::string, std::string> downloads[] = {
        {R"("bytesCompleted":100)", "d/a.mkv.part"}, {R"("bytesCompleted":52428801)", "d/a.mkv.part"},
        {R"("bytesCompleted":52428800)", "d/a.mkv"}, {R"("bytesCompleted":100.5)", "d/a.mkv"},
        {R"("bytesCompleted":"100")", "d/a.mkv"}, {R"("other":1)", "d/a.mkv"}};
    for (const auto& [state, path] : downloads) {
        SCOPED_TRACE(state);
        ThumbnailGenerator generator(12, true);
        generator.taskFiles = item({R"({"name":"d/a.mkv","length":52428800,)" + state + "}", file("p.jpg", 10, 5),
                                    file("q.jpg", 11, 5)});
        std::vector<Thumbnail> list;
        EXPECT_EQ(generator.getThumbnailList(list), 0);
        EXPECT_EQ(list.at(4).file_path + " " + list.at(5).file_path, path + " q.jpg");
    }
}

TEST_F(GeneratorTest, FiltersWhatIsRecorded) {
    const auto filter = [](ThumbnailGenerator& generator) { // of five records, the digits of those that are left
        std::vector<Thumbnail> list = {planned(0, 1), planned(0, 2), planned(0, 3), planned(0, 4), planned(0, 5)};
        const int result = generator.filterExistThumbnail(list);
        int left = 0;
        for (const Thumbnail& each : list) {
            left = left * 10 + each.thumbnail_index;
        }
        return result < 0 && left == 12345 ? result : left;
    };
    const std::string foreign = R"({"data":[5,)" + row(0, 3) + "," + row(0, 2) + "," + row(9, 1) +
                                R"(,{"task_id":13,"file_index":0,"thumbnail_index":1}]})";
    check({{"no data", SET(), filter, 12345, "", "rows|12"},
           {"data of another shape", SET(fake.stored = json(R"({"data":{"a":)" + row(0, 1) + "}}")), filter, 12345, ""},
           {"a reply of another shape", SET(fake.stored = json("[1]")), filter, 12345, ""},
           {"neighbours, malformed and foreign rows", SET(fake.stored = json(foreign)), filter, 145, ""},
           {"positive result", SET(fake.results["rows"] = 1), filter, 12345, ""},
           {"database fails", SET(fake.results["rows"] = -1), filter, -1,
            "Failed to get all thumbnail info;Failed to get existing thumbnail list"}});
}

TEST_F(GeneratorTest, ChecksParametersAndPictures) {
    const std::string link = sandbox / "link";
    std::filesystem::create_symlink("/dev/null", link);
    const auto noPath = [](ThumbnailGenerator& generator) {
        std::string path;
        Json::Value output;
        return generator.getMediaInfo(path, output);
    };
    check({{"second 0", SET(), CALL(generateThumbnailByFFMPEG("in", "/dev/null", 0)), -1, "Failed to set second 0", ""},
           {"second below 0", SET(), CALL(generateThumbnailByFFMPEG("in", "/dev/null", -3)), -1, "Failed to set second -3", ""},
           {"no path", SET(), noPath, -1, "Bad parameter", ""},
           {"missing", SET(), CALL(isValidThumbnail("/none")), -1, "Failed to lstat() /none. [No such file or directory]"},
           {"link to something empty", SET(), CALL(isValidThumbnail(link)), 0, ""}});
}

TEST_F(GeneratorTest, MakesOneThumbnail) {
    const auto make = [](Thumbnail thumbnail, int second = -1) {
        return [=](ThumbnailGenerator& generator) mutable {
            const int before = static_cast<int>(std::time(nullptr));
            const int result = generator.generateThumbnail(thumbnail);
            EXPECT_EQ(thumbnail.thumbnail_second, second);
            EXPECT_TRUE(result < 0 ? thumbnail.create_time == -1 : thumbnail.create_time >= before);
            return result;
        };
    };
    const auto duration = [](const std::string& text) { return SET(fake.helperOutput = "{\"duration\":" + text + "}"); };
    const auto video = make(planned(0, 2)), photo = make(planned(1, 0, kPhoto));
    const std::string work = task + "vexodlthumbnail";
    const std::string prepared = "exec|/usr/vexo/bin/vexofstool|--check-volume-writable|" + sandbox.root +
                                 "|(null)|(null);mkdir|" + work + "|(null)|1|-1|-1|755";
    const std::string helper = "/var/packages/Quellbox/target/bin/vexodlgetduration";
    const std::string noMediaInfo = "Failed to get mediaInfo";
    check({{"no directory", SET(fake.downloadLink.clear()), video, -1, "Failed to get tmp download dir"},
           {"no work directory", SET(fake.results["mkdir"] = -1), video, -1, "Failed to do make directory " + work},
           {"a frame, by the generator's task", SET(), make({99, 0, 2, "a.mkv", kVideo}, 5), 0, "",
            prepared + ";run|11|" + helper + "|" + helper + "|(null)|(null)|(null)|(null)|(null)|(null)|(null)|(null)|--path|" +
            task + "a.mkv|--debug_mode;execv|/usr/vexo/bin/ffmpeg|1|/usr/vexo/bin/ffmpeg|-ss|5|-timelimit|300|-i|" + task +
            "a.mkv|-vf|select=eq(pict_type\\,I),scale='if(gt(a,1),min(1080,iw),-1)':'if(gt(a,1),-1,min(1080,ih))'|-y|-vframes|1|"
            "-an|-qscale:v|1|-f|mjpeg|" + work + "/0_2.jpeg"},
           {"the largest duration", duration("2147483647"), make(planned(0, 4), 1717986917), 0, ""},
           {"the smallest duration", duration("1"), make(planned(0, 4), 1), 0, ""},
           {"an hour", duration("3604"), make(planned(0, 1), 721), 0, ""},
           {"the helper fails", SET(fake.results["run"] = 1), video, -1, "Failed to get duration;" + noMediaInfo},
           {"no output", SET(fake.helperOutput = ""), video, -1, "Failed to get output of duration;" + noMediaInfo},
           {"ffmpeg fails", SET(fake.results["execv"] = 69), video, -1,
            "Failed to run ffmpeg [No such file or directory] return 69;Failed to generate thumbnail [" + work +
            "/0_2.jpeg] from [" + task + "a.mkv] by ffmpep"},
           {"an unfinished photo", SET(), make(planned(2, 0, kPhoto)), -1, "", prepared},
           {"no such photo", SET(), make(planned(-1, 0, kPhoto)), -1, "", prepared},
           {"the converter fails", SET(fake.results["execv"] = -2), photo, -1,
            "Failed to convert-thumb retcode: -2.;Failed to generate thumbnail [" + work + "/1_0.jpeg] from [" + task +
            "b.jpg] by convert-thumb"},
           {"another type", SET(), make(planned(0, 0, static_cast<VEXODL_MEDIA_TYPE>(2))), -1, "Not supported type 2", prepared},
           {"a photo", SET(), make(planned(1, 0, kPhoto), 0), 0, "",
            prepared + ";execv|/usr/vexo/bin/convert-thumb|1|/usr/vexo/bin/convert-thumb|" + task + "b.jpg|-thumbnail|1024x1024>|"
            "-quality|90|-strip|-flatten|-colorspace|sRGB|" + work + "/1_0.jpeg"},
           {"an empty picture", SET(fake.picture.clear()), photo, -1, "Not a valid thumbnail image"}});
    EXPECT_FALSE(std::filesystem::exists(work + "/1_0.jpeg"));

    for (const char* text : {"[1]", "7", "{}", R"({"duration":"9"})", R"({"duration":0})", R"({"duration":-5})",
                             R"({"duration":4294967297})", R"({"duration":9.5})", R"({"duration":true})"}) {
        check({{text, SET(fake.helperOutput = text), video, -1, "Duration is invalid"}});
    }
    for (const char* text : {" \n", "{\"duration\""}) {
        check({{text, SET(fake.helperOutput = text), video, -1, "Failed to get mediaInfo json from string;" + noMediaInfo}});
    }
}

TEST_F(GeneratorTest, GeneratesWhatIsMissing) {
    report({kPicture, kFilm});
    fake.stored["data"].append(json(row(1, 1)));
    ThumbnailGenerator generator(12, true);
    EXPECT_EQ(generator.generate(), 0);
    EXPECT_EQ(fake.messages, "");
    std::string rows;
    for (const Json::Value& each : fake.stored["data"]) {
        rows += each["thumbnail_filename"].asString() + " " + each["file_path"].asString() + " " + each["thumbnail_second"].asString() + ";";
    }
    EXPECT_EQ(rows, "  ;1_0.jpeg a.mkv 1;1_2.jpeg a.mkv 5;1_3.jpeg a.mkv 7;1_4.jpeg a.mkv 9;0_0.jpeg b.jpg 0;");
    // Seven questions for the plan and what is recorded, five calls for each frame and four for the photo.
    EXPECT_EQ(1 + std::count(fake.calls.begin(), fake.calls.end(), ';'), 7 + 4 * 5 + 4);
    fake.calls.clear();
    EXPECT_EQ(generator.generate(), 0); // nothing is missing: nothing is started or stored
    EXPECT_EQ(fake.calls, R"(torrent|12|["id","name","files","fileStats"];video|jpg;video|mkv;subtitle|a.mkv;photo|jpg;photo|mkv;rows|12)");
}

TEST_F(GeneratorTest, TellsWhichStageFailed) {
    const auto batch = [](ThumbnailGenerator& generator) {
        std::vector<Thumbnail> list = {{13, 1, 0, "b.jpg", kPhoto}, {13, 2, 0, "c.png", kPhoto}, {13, 1, 1, "b.jpg", kPhoto}};
        return generator.generateThumbnailByList(list);
    };
    const std::string stored = "Failed to add thumbnail to db, taskId:13, fileIndex:1, thumbnailIndex:";
    check({{"no database", SET(fake.results["rows"] = -1), CALL(generate()), -1,
            "Failed to get all thumbnail info;Failed to get existing thumbnail list;Failed to remove existed thumbnail"},
           {"an unfinished photo", SET(), CALL(generate()), -1,
            "Failed to generate thumbnail, taskId:12, fileIndex:2, thumbnailIndex:0;Failed to generate all thumbnail 7(6);"
            "Failed to generate thumbnail"},
           {"the database refuses, by the records' task", SET(fake.results["insert"] = -1), batch, -1,
            stored + "0;Failed to generate thumbnail, taskId:13, fileIndex:2, thumbnailIndex:0;" + stored +
            "1;Failed to generate all thumbnail 3(0)"}});
    EXPECT_TRUE(std::filesystem::exists(task + "vexodlthumbnail/1_0.jpeg"));
}

// Each platform call of a whole run fails once: the run says so, no row is lost or stands for a missing picture, and the
// next run completes.
TEST_F(GeneratorTest, SurvivesTheFailureOfEveryCall) {
    int number = 0;
    for (bool reached = true; reached; ++number) {
        SCOPED_TRACE(number);
        reset();
        std::filesystem::remove_all(task);
        report({kFilm, kPicture});
        fake.failingCall = number;
        ThumbnailGenerator generator(12, false);
        const int result = generator.generate();
        reached = fake.failingCall < 0;
        EXPECT_EQ(result, reached ? -1 : 0);
        for (const Json::Value& each : fake.stored["data"]) {
            EXPECT_TRUE(std::filesystem::exists(task + "vexodlthumbnail/" + each["thumbnail_filename"].asString()));
        }
        fake.failingCall = -1;
        EXPECT_EQ(generator.generate(), 0);
        EXPECT_EQ(fake.stored["data"].size(), 6U);
    }
    EXPECT_EQ(number, 32); // the engine, the rows, five times five for a frame, four for a photo, and none
}

// A thread of a service may have a small stack, and may be cancelled while it is inside.
TEST_F(GeneratorTest, RunsOnASmallStackAndOutlivesACancellation) {
    fake.helperOutput = std::string(100000, '[');
    int result = 0, state = PTHREAD_CANCEL_DISABLE;
    onSmallStack([&] {
        pthread_cancel(pthread_self());
        result = ThumbnailGenerator(12, false).generate();
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
    });
    EXPECT_EQ(state, PTHREAD_CANCEL_ENABLE); // the request, still pending, would be taken now
    EXPECT_EQ(result, -1);
    EXPECT_EQ(fake.stored["data"].size(), 1U); // the photo; no video has a duration
}
