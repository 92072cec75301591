// Compressed bytes, unpacked in a thread of its own, from which they come through a pipe: so a file is unpacked while its
// format is read. zlib unpacks gzip, whose checksum libarchive does not look at, and libarchive all else.
#pragma once

#include "import/open_file.h"

#include <string>
#include <string_view>
#include <thread>

struct archive;
struct z_stream_s;

/// Whether a file that begins like this is compressed by gzip, xz, zstd or bzip2.
bool is_compressed(std::string_view begun);

class unpacker {
public:
    /// Unpacks `begun`, the bytes that were taken from the file already, and all that follow.
    unpacker(std::string name, open_file packed, std::string begun, open_file unpacked);
    /// Whoever reads the pipe must have closed it, or read to its end.
    ~unpacker();
    /// Waits for the end. Throws `failure` for damaged data and for such as ends too early.
    void finish();

private:
    void run();
    void unpack();
    void unpack_gzip(z_stream_s& stream);
    void unpack_other(archive* reader);
    friend long read_packed(unpacker& own, const void** bytes);

    std::string name_;
    open_file packed_;
    std::string buffer_; ///< bytes as they were read; at first those that were taken already
    bool is_begun_ = false;
    long taken_ = 0; ///< how many bytes libarchive was given
    open_file unpacked_;
    std::string error_; ///< empty: none; valid when the thread has ended
    std::thread thread_;
};
