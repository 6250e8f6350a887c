#include "tests/host/loopbackEngine.h"
#include "tests/programs/programRun.h"

#include <functional>
#include <vector>

namespace {

constexpr const char* kCheck = "/usr/local/bin/makeThumbnails check";

/// A server with one thing wrong, and what is told of it: the lines that are not "ok".
struct Fault {
    std::string name;
    std::vector<std::string> told;
    std::function<void()> make;
    std::string command = kCheck;
};

void prepare() {
    shell("chmod -R u+rwX /srv/download /srv/database 2>/dev/null; rm -rf /srv/download /srv/database /srv/tree");
    fs::create_directories("/srv/download/7/vexodlthumbnail");
    fs::create_directories("/srv/database");
}

/// The lines that begin so, without these beginnings.
std::vector<std::string> linesOf(const std::string& text, const std::string& begin) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        if (line.compare(0, begin.size(), begin) == 0) {
            lines.push_back(line.substr(begin.size()));
        }
    }
    return lines;
}

/// The command in a place where one more folder or file stands over what is at `path`.
std::string with(const std::string& path, const std::string& instead) {
    return "bwrap --dev-bind / / --bind " + instead + " " + path + " " + kCheck;
}

TEST(Check, TellsEachSingleFaultAndWhatToDo) {
    int status = 200;
    std::string body =
        R"({"result":"success","arguments":{"torrents":[{"hashString":"a","downloadDir":"/srv/download/7"}]}})";
    const LoopbackEngine engine([&](const std::string&) { return http(status, body); });
    const std::string where = " (" + engine.url.substr(0, 7) + engine.url.substr(engine.url.find('@') + 1) + ")";
    const std::string rightBody = body;
    const std::string owner = "Let the user who makes the pictures own it";

    prepare();
    setenv("VEXODL_RPC_URL", engine.url.c_str(), 1);
    const ProgramRun right = runProgram(words(kCheck));
    EXPECT_EQ(right.status, 0) << right.output << right.errors;
    EXPECT_EQ(linesOf(right.output, "ok  ").size(), 9U) << right.output;

    const std::vector<Fault> faults = {
        {"a setting",
         {"settings: VEXODL_TASKS_AT_ONCE is no number from 1 to 64. Correct it in /etc/default/vexodl"},
         [] {},
         "env VEXODL_TASKS_AT_ONCE=two "s + kCheck},
        {"no engine",
         {"torrent engine: Failed to connect to 127.0.0.1 port 9 after 0 ms: Couldn't connect to server "
          "(http://127.0.0.1:9/x). Start the engine, or put its address into VEXODL_RPC_URL"},
         [] {},
         "env VEXODL_RPC_URL=http://127.0.0.1:9/x "s + kCheck},
        {"the engine's password",
         {"torrent engine: HTTP status 401" + where + ". Put the engine's user name and password into VEXODL_RPC_URL"},
         [&] { status = 401; }},
        {"the engine's list of machines",
         {"torrent engine: HTTP status 403" + where + ". Put this machine's address into the engine's rpc-whitelist"},
         [&] { status = 403; }},
        {"another server in the engine's place",
         {"torrent engine: the answer is not a JSON object" + where +
          ". VEXODL_RPC_URL leads to something else; the engine's ends with /transmission/rpc"},
         [&] { body = "<html>"; }},
        {"no area",
         {"download area: /var/services/download: No such file or directory. Make it: ln -sT AREA "
          "/var/services/download"},
         [] { fs::rename("/srv/download", "/srv/tree"); }},
        {"an area that cannot be written",
         {"download area: /srv/download: Permission denied. " + owner},
         [] { shell("chmod 555 /srv/download"); }},
        {"a task's folder",
         {"tasks' folders: /srv/download/7: Permission denied. " + owner},
         [] { shell("chmod 555 /srv/download/7"); }},
        {"pictures that root made",
         {"tasks' folders: /srv/download/7/vexodlthumbnail: Permission denied. " + owner},
         [] { shell("chmod 555 /srv/download/7/vexodlthumbnail"); }},
        {"a database of something else",
         {"database: the database has schema version 99. "
          "Let VEXODL_DATABASE name another file, or install the release that made this one"},
         [] { shell("sqlite3 /srv/database/thumbnail.db 'PRAGMA user_version = 99'"); }},
        {"a database that cannot be written",
         {"database: attempt to write a readonly database. "
          "Let the user who makes the pictures own VEXODL_DATABASE's file and its folder"},
         [] { shell("chmod 444 /srv/database/thumbnail.db"); }},
        {"what is remembered",
         {"memory: /var/lib/vexodl/locks: Permission denied. "
          "/var/lib/vexodl and what is in it has to belong to the user who makes the pictures"},
         [] { shell("chmod 0 /srv/database/locks"); }},
        {"somebody's page",
         {"page of previews: /srv/download/previews.html is not the page of previews, and was left. "
          "Move it away, or set VEXODL_PAGE=off"},
         [] { writeFile("/srv/download/previews.html", "mine"); }},
        {"a missing program",
         {"programs: /usr/vexo/bin/vexofstool: No such file or directory. Install vexodl-host again"},
         [] { fs::create_directories("/srv/tree"); },
         with("/usr/vexo/bin", "/srv/tree")},
        {"a decoder that does not start",
         {"programs: /usr/vexo/bin/ffmpeg: no decoder that is confined: /usr/vexo/libexec/frameDecoder: No such file "
          "or "
          "directory. Install vexodl-host and what it depends on again; where that does not help, the kernel lacks "
          "seccomp filters"},
         [] { fs::create_directories("/srv/tree"); },
         with("/usr/vexo/libexec", "/srv/tree")},
    };
    for (const Fault& fault : faults) {
        SCOPED_TRACE(fault.name);
        prepare();
        status = 200;
        body = rightBody;
        EXPECT_EQ(runProgram(words(kCheck)).status, 0);
        fault.make();
        const ProgramRun run = runProgram(words(fault.command));
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(linesOf(run.output, "no  "), fault.told) << run.output << run.errors;
    }
    prepare();
}

} // namespace
