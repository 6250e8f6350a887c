#pragma once

#include <stdexcept>
#include <string>

namespace server {

/// A file stands in the page's place that is none of ours, or a link; it was left alone.
class ForeignPage : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Writes the page of all tasks as previews.html into the download area, for all to read as the pictures are, unless it
/// stands there with the same contents.
/// @return its path. Throws Trouble, or ForeignPage.
std::string writePreviewPage(const std::string& downloadFolder);

/// Does anything stand in the page's place?
bool isPreviewPageThere(const std::string& downloadFolder);

/// Throws ForeignPage where the page could not be written for what stands in its place.
void checkPreviewPage(const std::string& downloadFolder);

} // namespace server
