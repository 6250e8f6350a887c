#include "programs/front/taskInput.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <thread>

namespace {

namespace fs = std::filesystem;

/// A task beside another, whose files say "foreign".
struct TaskInput : testing::Test {
    TaskInput() {
        fs::create_directories(task / "folder/inner");
        fs::create_directories(other / "inner");
        for (const fs::path& file : {task / "film", task / "folder/inner/film"}) {
            std::ofstream(file) << "own";
        }
        std::ofstream(other / "inner/film") << "foreign";
    }
    ~TaskInput() override { fs::remove_all(root); }

    /// What the file says; empty, with errno set, when it was not opened.
    [[nodiscard]] std::string content(const std::string& relativePath) const {
        const Descriptor file = openTaskInput(openTaskDirectory(task), relativePath);
        std::array<char, 16> bytes = {};
        return {bytes.data(), file ? static_cast<std::size_t>(read(file.get(), bytes.data(), bytes.size())) : 0};
    }

    const fs::path root = fs::path(testing::TempDir()) / ("taskInputTest." + std::to_string(getpid()));
    const fs::path task = root / "7";
    const fs::path other = root / "8";
};

TEST_F(TaskInput, IsARegularFileReachedWithoutLinks) {
    fs::create_symlink("film", task / "link");
    fs::create_symlink(other / "inner/film", task / "out");
    fs::create_directory_symlink("folder", task / "linked");
    fs::create_directory_symlink("../8", task / "outer");
    mkfifo((task / "fifo").c_str(), 0600);
    const std::pair<const char*, int> refused[] = {{"link", ELOOP},
                                                   {"out", ELOOP},
                                                   {"linked/inner/film", ENOTDIR},
                                                   {"outer/inner/film", ENOTDIR},
                                                   {"../8/inner/film", EINVAL},
                                                   {"folder/../film", EINVAL},
                                                   {"./film", EINVAL},
                                                   {"folder//inner/film", EINVAL},
                                                   {"/film", EINVAL},
                                                   {"film/", ENOTDIR},
                                                   {"", EINVAL},
                                                   {"folder/..", EINVAL},
                                                   {"fifo", EINVAL},
                                                   {"folder", EINVAL},
                                                   {"none", ENOENT},
                                                   {"none/film", ENOENT}};
    for (const auto& [path, error] : refused) {
        errno = 0;
        EXPECT_EQ(content(path), "") << path;
        EXPECT_EQ(errno, error) << path;
    }
    EXPECT_EQ(content("film") + content("folder/inner/film"), "ownown");
    fs::rename(task, root / "gone");
    EXPECT_EQ(content("film"), "");
    EXPECT_EQ(errno, ENOENT);
}

/// A folder changes places with a link to the other task's.
TEST_F(TaskInput, IsNeverAnothersWhileFoldersAreSwapped) {
    fs::create_directory_symlink("../8", task / "spare");
    std::atomic<bool> done = false;
    std::thread swapper([&] {
        while (!done) {
            renameat2(AT_FDCWD, (task / "folder").c_str(), AT_FDCWD, (task / "spare").c_str(), RENAME_EXCHANGE);
        }
    });
    int opened = 0;
    int refused = 0;
    for (int attempt = 0; (attempt < 200000 || opened == 0 || refused == 0) && attempt < 10'000'000; ++attempt) {
        const std::string bytes = content("folder/inner/film");
        opened += bytes == "own" ? 1 : 0;
        refused += bytes.empty() ? 1 : 0;
        EXPECT_TRUE(bytes.empty() || bytes == "own") << bytes;
    }
    done = true;
    swapper.join();
    EXPECT_TRUE(opened > 0 && refused > 0) << opened << ' ' << refused;
}

} // namespace
