#pragma once

#include "programs/picture/worker.h"

#include <functional>
#include <string>

/// One picture to make of one downloaded file, as a command line names them.
struct PictureOrder {
    const char* program;                  ///< name of this program in messages
    std::string source;                   ///< TASK/..., a file anywhere below the task's directory
    std::string target;                   ///< TASK/FOLDER/NAME, the picture
    std::uint64_t mostBytes = UINT64_MAX; ///< of the file; a larger one is not looked at
};

/// Chooses the worker for an open input.
using WorkerChoice = std::function<Worker(int input)>;

/// Makes the picture: opens the input, has the worker write a picture, checks that it is whole and gives
/// it its name. The task's directory is the target's grandparent; nothing outside of it is read or written.
///
/// @return an ExitStatus for main(). Unless it is kMade, one line on standard error and in the system log says why,
///         and nothing new stands in the folder of the picture.
int makePicture(const PictureOrder& order, const WorkerChoice& chooseWorker);
