#include "png_file.h"

#include <cstdint>

namespace {

uint32_t crcOf(const std::string& bytes, size_t from) {
    static uint32_t table[256];
    static bool filled = false;
    if (!filled) {
        for (uint32_t n = 0; n < 256; ++n) {
            uint32_t c = n;
            for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            table[n] = c;
        }
        filled = true;
    }
    uint32_t crc = 0xFFFFFFFFu;
    for (size_t i = from; i < bytes.size(); ++i) {
        crc = table[(crc ^ static_cast<uint8_t>(bytes[i])) & 0xFF] ^ (crc >> 8);
    }
    return crc ^ 0xFFFFFFFFu;
}

uint32_t adlerOf(const std::string& bytes) {
    uint32_t a = 1, b = 0;
    for (char byte : bytes) {
        a = (a + static_cast<uint8_t>(byte)) % 65521u;
        b = (b + a) % 65521u;
    }
    return (b << 16) | a;
}

void putBigEndian(std::string& out, uint32_t value) {
    out.push_back(static_cast<char>((value >> 24) & 0xFF));
    out.push_back(static_cast<char>((value >> 16) & 0xFF));
    out.push_back(static_cast<char>((value >> 8) & 0xFF));
    out.push_back(static_cast<char>(value & 0xFF));
}

void putChunk(std::string& out, const char* type, const std::string& data) {
    putBigEndian(out, static_cast<uint32_t>(data.size()));
    size_t typeStart = out.size();
    out.append(type, 4);
    out += data;
    putBigEndian(out, crcOf(out, typeStart));
}

// Each row: filter byte 0, then red, green, blue.
std::string rawRows(const Picture& picture) {
    std::string rows;
    rows.reserve(static_cast<size_t>(picture.height()) * (1 + 3 * static_cast<size_t>(picture.width())));
    for (int y = 0; y < picture.height(); ++y) {
        rows.push_back('\0');
        for (int x = 0; x < picture.width(); ++x) {
            uint32_t pixel = picture.pixels[static_cast<size_t>(y) * static_cast<size_t>(picture.width()) +
                                            static_cast<size_t>(x)];
            rows.push_back(static_cast<char>((pixel >> 16) & 0xFF));
            rows.push_back(static_cast<char>((pixel >> 8) & 0xFF));
            rows.push_back(static_cast<char>(pixel & 0xFF));
        }
    }
    return rows;
}

// A zlib stream of stored (uncompressed) deflate blocks of up to 65,535 bytes.
std::string storedZlib(const std::string& raw) {
    std::string out;
    out.push_back(static_cast<char>(0x78));
    out.push_back(static_cast<char>(0x01));
    size_t at = 0;
    do {
        size_t length = raw.size() - at;
        if (length > 65535) length = 65535;
        bool last = at + length == raw.size();
        out.push_back(static_cast<char>(last ? 1 : 0));
        out.push_back(static_cast<char>(length & 0xFF));
        out.push_back(static_cast<char>((length >> 8) & 0xFF));
        out.push_back(static_cast<char>(~length & 0xFF));
        out.push_back(static_cast<char>((~length >> 8) & 0xFF));
        out.append(raw, at, length);
        at += length;
    } while (at < raw.size());
    putBigEndian(out, adlerOf(raw));
    return out;
}

}  // namespace

std::string pngBytes(const Picture& picture) {
    std::string png("\x89PNG\r\n\x1a\n", 8);
    std::string header;
    putBigEndian(header, static_cast<uint32_t>(picture.width()));
    putBigEndian(header, static_cast<uint32_t>(picture.height()));
    header.push_back(8);  // bits per channel
    header.push_back(2);  // truecolour
    header.push_back(0);  // deflate
    header.push_back(0);  // adaptive filtering
    header.push_back(0);  // no interlace
    putChunk(png, "IHDR", header);
    putChunk(png, "IDAT", storedZlib(rawRows(picture)));
    putChunk(png, "IEND", std::string());
    return png;
}
