#include "programs/duration/filmLength.h"

#include "programs/media/mediaFile.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

namespace {

/// The length of a stream without a container: that of its frames at several places, as much as they hold of the file.
std::int64_t lengthOfFrames(MediaFile& file, PresentBytes* bytesThere) {
    constexpr std::int64_t kPlaces = 8;
    constexpr std::int64_t kBytes = 4 << 20;
    AVFormatContext& format = file.format();
    const Libav<AVPacket> packet = owned(av_packet_alloc());
    std::int64_t length = 0;
    std::int64_t bytes = 0;
    std::int64_t longest = 0; // behind a hole libav first takes frames for fields
    const std::int64_t step = std::max(kBytes, file.sizeInBytes() / kPlaces);
    for (std::int64_t place = 0; place < file.sizeInBytes(); place += step) {
        std::int64_t begin = bytesThere == nullptr ? place : bytesThere->next(place);
        const std::int64_t end = std::min(begin + kBytes, file.sizeInBytes());
        file.endAt(end);
        while (begin < end) {
            file.forgetHole();
            checked(av_seek_frame(&format, -1, begin, AVSEEK_FLAG_BYTE), "cannot go to a place of the file");
            while (av_read_frame(&format, packet.get()) >= 0) {
                const bool hole = packet->size > kBytes / 2;
                longest = std::max(longest, packet->duration);
                length += hole ? 0 : bytesThere == nullptr ? packet->duration : longest;
                bytes += hole ? 0 : packet->size;
                av_packet_unref(packet.get());
            }
            begin = bytesThere == nullptr ? end : bytesThere->next(std::max(file.position(), begin + 1));
        }
    }
    length = av_rescale(length, file.sizeInBytes(), std::max<std::int64_t>(bytes, 1));
    return av_rescale_q(length, format.streams[0]->time_base, AV_TIME_BASE_Q);
}

/// When a packet ends, in microseconds; none where it tells no time.
std::optional<std::int64_t> endOf(const AVPacket& packet, const AVFormatContext& format) {
    const std::int64_t time = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
    if (time == AV_NOPTS_VALUE) {
        return std::nullopt;
    }
    return av_rescale_q(time + packet.duration, format.streams[packet.stream_index]->time_base, AV_TIME_BASE_Q);
}

std::int64_t startOf(const AVFormatContext& format) {
    return format.start_time != AV_NOPTS_VALUE ? format.start_time : 0;
}

/// The length of a container that tells none, by the times in its first part, as much as that holds of the file.
std::int64_t lengthByTimes(MediaFile& file) {
    constexpr std::int64_t kBytes = 32 << 20;
    AVFormatContext& format = file.format();
    const Libav<AVPacket> packet = owned(av_packet_alloc());
    std::int64_t last = 0;
    file.endAt(kBytes);
    while (av_read_frame(&format, packet.get()) >= 0) {
        last = std::max(last, endOf(*packet, format).value_or(0));
        av_packet_unref(packet.get());
    }
    return av_rescale(last - startOf(format), file.sizeInBytes(), std::min(file.sizeInBytes(), kBytes));
}

// Of an unfinished film:

/// The latest time that is there.
struct Last {
    std::int64_t time = INT64_MIN; ///< in microseconds
    std::int64_t place = 0;        ///< behind the bytes that it counts for
};

/// Behind the last byte that is there.
std::int64_t endOfBytes(PresentBytes& bytes) {
    std::int64_t begin = 0;
    std::int64_t end = bytes.size();
    while (begin < end) {
        const std::int64_t middle = begin + (end - begin) / 2;
        const std::int64_t next = bytes.next(middle);
        if (next < bytes.size()) {
            begin = next + 1;
        } else {
            end = middle;
        }
    }
    return begin;
}

/// Reads on to a hole or the end. What is there to the end counts for all of it.
void readOn(MediaFile& file, Last& last) {
    const Libav<AVPacket> packet = owned(av_packet_alloc());
    bool found = false;
    while (file.read(*packet) >= 0) {
        const std::optional<std::int64_t> end = endOf(*packet, file.format());
        if (end && *end > last.time) {
            const std::int64_t place = packet->pos < 0 ? file.position() : packet->pos + packet->size;
            last = {*end, std::max(place, last.place)};
            found = true;
        }
        av_packet_unref(packet.get());
    }
    if (found && !file.metHole()) {
        last.place = file.sizeInBytes();
    }
}

/// What libav has read of an MP4's fragments tells it without their samples.
void takeIndex(const AVFormatContext& format, Last& last) {
    for (unsigned i = 0; i < format.nb_streams; ++i) {
        AVStream* const stream = format.streams[i];
        const int count = avformat_index_get_entries_count(stream);
        const AVIndexEntry* const entry = avformat_index_get_entry(stream, count - 1);
        const AVIndexEntry* const before = avformat_index_get_entry(stream, count - 2);
        if (entry != nullptr && before != nullptr) {
            const std::int64_t end = 2 * entry->timestamp - before->timestamp;
            last.time = std::max(last.time, av_rescale_q(end, stream->time_base, AV_TIME_BASE_Q));
            last.place = std::max(last.place, entry->pos + entry->size);
        }
    }
}

Last findLast(MediaFile& file, PresentBytes& bytes, bool fragmented) {
    Last last;
    const std::int64_t end = endOfBytes(bytes);
    for (std::int64_t step = 256 << 10; file.canEnter() && last.time == INT64_MIN && step < 2 * end; step *= 2) {
        for (auto place = file.enter(std::max<std::int64_t>(end - step, 0)); place;) {
            if (fragmented) {
                takeIndex(file.format(), last);
                place = file.enter(std::max(*place + 1, last.place));
            } else {
                readOn(file, last);
                place = file.metHole() ? file.enter(file.behindHole()) : std::nullopt;
            }
        }
    }
    if (fragmented && last.time == INT64_MIN) {
        takeIndex(file.format(), last);
    } else if (!file.canEnter()) {
        readOn(file, last);
    }
    return last;
}

std::int64_t bigEndian(std::string_view bytes, std::size_t place, std::size_t count) {
    std::int64_t number = 0;
    for (std::size_t i = 0; i < count; ++i) {
        number = number << 8 | (place + i < bytes.size() ? static_cast<unsigned char>(bytes[place + i]) : 0);
    }
    return number;
}

/// The content of the first box of that name among boxes of MP4; empty where there is none, or not all of it.
std::string_view box(std::string_view boxes, std::string_view name) {
    constexpr std::size_t kHead = 8;
    while (boxes.size() >= kHead) {
        const auto size = static_cast<std::size_t>(bigEndian(boxes, 0, 4));
        if (size < kHead || size > boxes.size()) {
            break;
        }
        if (boxes.substr(4, 4) == name) {
            return boxes.substr(kHead, size - kHead);
        }
        boxes.remove_prefix(size);
    }
    return {};
}

std::string readAt(PresentBytes& bytes, std::int64_t place, std::size_t size) {
    std::string text(size, '\0');
    const std::int64_t count =
        bytes.read(reinterpret_cast<std::uint8_t*>(text.data()), static_cast<std::int64_t>(size), place);
    text.resize(static_cast<std::size_t>(std::max<std::int64_t>(count, 0)));
    return text;
}

/// What the head of an MP4 tells of its fragments' length, beside what libav reads of it; 0 where it tells nothing.
std::int64_t toldOfFragments(PresentBytes& bytes) {
    const std::string head = readAt(bytes, 0, 1 << 20);
    const std::string_view film = box(head, "moov");
    const std::string_view filmHead = box(film, "mvhd");
    const std::string_view fragments = box(box(film, "mvex"), "mehd");
    const bool isLong = bigEndian(fragments, 0, 1) == 1;
    const std::int64_t scale = bigEndian(filmHead, bigEndian(filmHead, 0, 1) == 1 ? 20 : 12, 4);
    return av_rescale(bigEndian(fragments, 4, isLong ? 8 : 4), AV_TIME_BASE, std::max<std::int64_t>(scale, 1));
}

/// Where the index at the end of an MP4 has the last fragment begin; nothing where it is not there.
Last lastOfIndex(const AVFormatContext& format, PresentBytes& bytes) {
    constexpr std::int64_t kEnd = 16;
    constexpr std::int64_t kMost = 16 << 20;
    const std::string pointer = readAt(bytes, bytes.size() - kEnd, kEnd);
    const std::int64_t size = std::min(bigEndian(box(pointer, "mfro"), 4, 4), kMost);
    const std::string end = readAt(bytes, bytes.size() - size, static_cast<std::size_t>(size));
    const std::string_view index = box(box(end, "mfra"), "tfra");
    const std::int64_t count = bigEndian(index, 12, 4);
    const std::size_t width = bigEndian(index, 0, 1) == 1 ? 8 : 4;
    for (unsigned i = 0; count > 0 && i < format.nb_streams; ++i) {
        if (format.streams[i]->id == bigEndian(index, 4, 4)) {
            const std::size_t entry = index.size() - (index.size() - 16) / static_cast<std::size_t>(count);
            return {av_rescale_q(bigEndian(index, entry, width), format.streams[i]->time_base, AV_TIME_BASE_Q),
                    bigEndian(index, entry + width, width)};
        }
    }
    return {};
}

/// The length of an MPEG stream by its first and its last time that are there. Where its beginning is missing it began
/// at a second and a half, as it does as a rule, unless these times do not fit to the bytes before them.
std::int64_t lengthBetween(const MediaFile::Arrival& first, const Last& last, std::int64_t size) {
    constexpr std::int64_t kStart = AV_TIME_BASE * 3 / 2;
    constexpr std::int64_t kUneven = 3; // times the mean bit rate
    const std::int64_t bytes = std::max<std::int64_t>(last.place - first.place, 1);
    const std::int64_t missing = av_rescale(last.time - first.time, first.place, bytes);
    if (first.place > 0 && first.time >= missing / kUneven && first.time <= kUneven * missing + kStart) {
        return av_rescale(last.time - kStart, size, last.place);
    }
    return av_rescale(last.time - first.time, size, bytes);
}

/// The length by the times that are there, unless these are all before the end that is told.
std::int64_t lengthOfParts(MediaFile& file, PresentBytes& bytes, std::int64_t told, bool fragmented) {
    const std::int64_t start = file.lacksBeginning() ? 0 : startOf(file.format());
    const bool isMpeg = !file.tellsSizes();
    const auto first = isMpeg ? file.arrive(0, file.sizeInBytes()) : std::nullopt;
    const Last ofIndex = lastOfIndex(file.format(), bytes);
    Last last = findLast(file, bytes, fragmented);
    last = ofIndex.time > last.time ? ofIndex : last;
    if (last.time < told - AV_TIME_BASE) {
        return told;
    }
    return first ? lengthBetween(*first, last, file.sizeInBytes())
                 : av_rescale(last.time - start, file.sizeInBytes(), std::max<std::int64_t>(last.place, 1));
}

/// What a head tells holds, but for the first part of an MP4 that goes on in fragments.
std::int64_t lengthOfUnfinished(MediaFile& file, PresentBytes& bytes) {
    AVFormatContext& format = file.format();
    const bool fragmented = file.canEnter() && std::strncmp(format.iformat->name, "mov", 3) == 0;
    std::int64_t told = std::max<std::int64_t>(format.duration, 0);
    if (told == 0) {
        file.readStreams();
        const bool fromHead = format.duration_estimation_method == AVFMT_DURATION_FROM_STREAM;
        told = fromHead ? std::max<std::int64_t>(format.duration, 0) : 0;
    }
    if (fragmented) {
        told = std::max(told, toldOfFragments(bytes));
    }
    return told > 0 && !fragmented ? told : lengthOfParts(file, bytes, told, fragmented);
}

/// As the container's head tells or, where that has none, as the packets' times do.
std::int64_t lengthOfFinished(MediaFile& file) {
    AVFormatContext& format = file.format();
    if (format.duration <= 0) {
        file.readStreams();
    }
    return format.duration > 0 ? format.duration : lengthByTimes(file);
}

} // namespace

std::int64_t lengthOf(int descriptor, Download download) {
    MediaFile file(descriptor, download);
    PresentBytes bytes(descriptor, download);
    const bool finished = download == Download::finished;
    std::int64_t length = file.isBare() ? lengthOfFrames(file, finished ? nullptr : &bytes) : 0;
    if (length <= 0) {
        length = finished ? lengthOfFinished(file) : lengthOfUnfinished(file, bytes);
    }
    if (length <= 0) {
        throw MediaError("the container tells no duration");
    }
    if (MediaFile::isStopped()) {
        throw MediaError("only a part of the file was read");
    }
    return length;
}
