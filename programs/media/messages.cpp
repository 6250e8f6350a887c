#include "programs/media/messages.h"

#include "programs/media/libav.h"

#include <array>
#include <cstdarg>

namespace {

unsigned long decoderComplaints = 0;
std::array<char, 512> complaint = {};

void collect(void* part, int level, const char* format, va_list arguments) {
    if (level > AV_LOG_ERROR) {
        return;
    }
    int prefix = 0;
    av_log_format_line2(part, level, format, arguments, complaint.data(), complaint.size(), &prefix);
    const AVClass* kind = part != nullptr ? *static_cast<AVClass**>(part) : nullptr;
    if (kind != nullptr && kind == avcodec_get_class()) {
        ++decoderComplaints;
    }
}

} // namespace

void collectMessages() {
    av_log_set_callback(collect);
}

unsigned long complaintCount() {
    return decoderComplaints;
}

std::string lastComplaint() {
    std::string line = complaint.data();
    line.erase(line.find_last_not_of("\r\n ") + 1);
    return line;
}
