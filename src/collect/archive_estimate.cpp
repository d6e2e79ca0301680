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
constexpr unsigned long long TAR_BLOCK = 512;

/// Compressed over plain size of the sample, or 1 when nothing could be read or compressed.
double compressionRatio(const std::string& path, unsigned long long offset) {
    UniqueFd fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd) return 1.0;
    std::vector<unsigned char> sample(SAMPLE_SIZE);
    ssize_t got = pread(fd.get(), sample.data(), sample.size(), static_cast<off_t>(offset));
    if (got <= 0) return 1.0;
    uLongf packed = compressBound(static_cast<uLong>(got));
    std::vector<unsigned char> out(packed);
    if (compress2(out.data(), &packed, sample.data(), static_cast<uLong>(got),
                  Z_DEFAULT_COMPRESSION) != Z_OK) {
        return 1.0;
    }
    return static_cast<double>(packed) / static_cast<double>(got);
}

}  // namespace

unsigned long long estimatePackedSize(const std::string& path, unsigned long long size,
                                      unsigned long long offset) {
    // A header block compresses to a few dozen bytes; the data's padding to almost nothing.
    constexpr unsigned long long HEADER_COST = 64;
    if (size == 0) return HEADER_COST;
    double ratio = compressionRatio(path, offset);
    return HEADER_COST + static_cast<unsigned long long>(static_cast<double>(size) * ratio) +
           (size % TAR_BLOCK != 0 ? 8 : 0);
}

unsigned long long freeSpaceIn(const char* folder) {
    struct statvfs info;
    if (statvfs(folder, &info) != 0) return 0;
    return static_cast<unsigned long long>(info.f_bfree) * info.f_frsize;
}
