// Screenshots as PNG files that any browser shows in the report.
#pragma once

#include <string>

#include "screen.h"

// The PNG bytes of a picture: 8-bit RGB, no interlacing, its image data in
// uncompressed deflate blocks (larger files, but no compressor to carry).
std::string pngBytes(const Picture& picture);
