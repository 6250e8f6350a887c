#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

/// A folder of one test's own, gone with the object.
struct Sandbox {
    Sandbox() { std::filesystem::permissions(mkdtemp(root.data()), std::filesystem::perms(0755)); }
    ~Sandbox() { std::filesystem::remove_all(root); }
    Sandbox(Sandbox&&) = delete;

    std::string operator/(const std::string& name) const { return root + '/' + name; }

    /// Writes a file with whatever folders it lacks. @return its path.
    std::string write(const std::string& name, const std::string& content) const {
        std::filesystem::create_directories(std::filesystem::path(*this / name).parent_path());
        std::ofstream(*this / name, std::ios::binary) << content;
        return *this / name;
    }

    std::string root = std::filesystem::temp_directory_path() / "vexodlXXXXXX";
};
