#pragma once

#include "util/descriptor.h"

#include <cstddef>
#include <string>

constexpr std::size_t kMostPictureBytes = std::size_t{8} << 20U;

/// A picture on its way into a directory: a hidden file beside the final name, which takes the name only when it is
/// whole. Destroyed before publish() succeeded, it leaves nothing behind; what a killed run left, the next one removes.
class NewPicture {
public:
    /// Creates the hidden file. `directory` is open for reading and outlives the picture; `name` is the final name in
    /// it. descriptor() is empty, with errno set, when that failed.
    NewPicture(const Descriptor& directory, std::string name);
    NewPicture(const NewPicture&) = delete;
    NewPicture& operator=(const NewPicture&) = delete;
    ~NewPicture();

    /// Open for reading and writing, to be filled from its start.
    [[nodiscard]] const Descriptor& descriptor() const { return file_; }

    /// Whether the file is one JPEG picture (isWholeJpeg()) of at most kMostPictureBytes.
    [[nodiscard]] bool isComplete() const;

    /// Gives the file, which is on the disk already, its name, replacing what has it, and makes that durable. False
    /// with errno set on failure.
    bool publish();

private:
    bool create();

    const Descriptor& directory_;
    std::string name_;
    std::string hiddenName_;
    Descriptor file_;
};
