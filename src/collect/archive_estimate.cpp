// A compressed size is guessed from a sample: logs and configuration compress alike all along,
// and one deflate over 256 KiB a member costs far less than the packing it foretells.
#include "collect/archive_estimate.h"

#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <zlib.h>

#include <vector>

#include "common/unique_fd.h"

namespace {

constexpr size_t SAMPLE_SIZE = 256 * 1024;
// What a member's tar header and padding add to one gzip stream over the whole archive: a header
// is mostly zeros and much like the one before it, and compresses to a dozen bytes or so.
constexpr unsigned long long HEADER_COST = 16;

/// The bytes deflate at gzip's default level makes of data, without a stream's own framing: the
/// archive has one gzip header and trailer for all its members. 0 when it could not be told.
unsigned long long deflatedSize(const unsigned char* data, size_t size) {
    z_stream stream = {};
    if (deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        return 0;
    std::vector<unsigned char> out(deflateBound(&stream, static_cast<uLong>(size)));
    stream.next_in = const_cast<unsigned char*>(data);
    stream.avail_in = static_cast<uInt>(size);
    stream.next_out = out.data();
    stream.avail_out = static_cast<uInt>(out.size());
    int status = deflate(&stream, Z_FINISH);
    unsigned long long packed = stream.total_out;
    deflateEnd(&stream);
    return status == Z_STREAM_END ? packed : 0;
}

/// Compressed over plain size of the sample, or 1 when nothing could be read or compressed.
double compressionRatio(const std::string& path, unsigned long long offset) {
    UniqueFd fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd) return 1.0;
    std::vector<unsigned char> sample(SAMPLE_SIZE);
    ssize_t got = pread(fd.get(), sample.data(), sample.size(), static_cast<off_t>(offset));
    if (got <= 0) return 1.0;
    unsigned long long packed = deflatedSize(sample.data(), static_cast<size_t>(got));
    return packed == 0 ? 1.0 : static_cast<double>(packed) / static_cast<double>(got);
}

}  // namespace

unsigned long long estimatePackedSize(const std::string& path, unsigned long long size,
                                      unsigned long long offset) {
    if (size == 0) return HEADER_COST;
    double ratio = compressionRatio(path, offset);
    return HEADER_COST + static_cast<unsigned long long>(static_cast<double>(size) * ratio);
}

unsigned long long estimatePackedText(const std::string& text) {
    unsigned long long packed =
        deflatedSize(reinterpret_cast<const unsigned char*>(text.data()), text.size());
    return HEADER_COST + (packed != 0 ? packed : text.size());
}

unsigned long long freeSpaceIn(const char* folder) {
    struct statvfs info;
    if (statvfs(folder, &info) != 0) return 0;
    return static_cast<unsigned long long>(info.f_bfree) * info.f_frsize;
}
