#pragma once

#include <stdexcept>

namespace server {

/// What is wrong with the server and not with a file: no task can have its pictures until somebody mends it.
class Trouble : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace server
