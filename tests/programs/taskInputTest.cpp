#include "programs/front/taskInput.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <vector>

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
    const std::pair<int, std::vector<const char*>> refused[] = {
        {ELOOP, {"link", "out"}},
        {ENOTDIR, {"linked/inner/film", "outer/inner/film", "film/"}},
        {EINVAL, {"../8/inner/film", "folder/../film", "./film", "folder//inner/film", "/film", "", "fifo", "folder"}},
        {ENOENT, {"none", "none/film"}}};
    for (const auto& [error, paths] : refused) {
        for (const char* path : paths) {
            EXPECT_EQ(content(path), "") << path;
            EXPECT_EQ(errno, error) << path;
        }
    }
    EXPECT_EQ(content("film") + content("folder/inner/film"), "ownown");
    fs::rename(task, root / "gone");
    EXPECT_EQ(content("film"), "");
    EXPECT_EQ(errno, ENOENT);
}

} // namespace
