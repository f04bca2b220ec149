#pragma once

#include <cstdio>
#include <string>

namespace station {

/// A stream of what a file compressed with zstd holds, for reading; null for any other file. Where
/// the content is torn or damaged the stream has an error. To be closed by `fclose`.
std::FILE* openCompressedStream(const std::string& path);

}  // namespace station
