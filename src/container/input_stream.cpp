#include "container/input_stream.hpp"

#include <cstring>

namespace deqaz {

void InputStream::readBytes(void* dest, uint32_t count) {
    uint32_t left = remaining();
    if (left >= count) {
        if (count) std::memcpy(dest, inputData + inputPos, count);
        inputPos += count;
        return;
    }
    if (count) std::memset(dest, 0, count);
    if (left) std::memcpy(dest, inputData + inputPos, left);
    if (inputPos < inputSize) inputPos = inputSize;
}

bool InputStream::readBlob(HeapArray<uint8_t>& out, uint32_t count) {
    if (!out.allocate(count)) return false;
    readBytes(out.data(), count);
    return true;
}

std::string InputStream::readString() {
    if (inputPos > inputSize) inputPos = inputSize;
    if (remaining() == 0) return {};
    const uint8_t* start = inputData + inputPos;
    const void* zero = std::memchr(start, 0, remaining());
    uint32_t len = zero ? static_cast<uint32_t>(static_cast<const uint8_t*>(zero) - start) : remaining();
    std::string s(reinterpret_cast<const char*>(start), len);
    // Past the string and its terminator; a string cut by the end has its terminator "past" it.
    inputPos += len;
    if (inputPos < inputSize) ++inputPos;
    return s;
}

uint8_t InputStream::readU8() {
    if (inputPos >= inputSize) return 0;
    return inputData[inputPos++];
}

uint16_t InputStream::readU16() {
    uint8_t b[2] = {};
    uint32_t n = remaining() < 2 ? remaining() : 2;
    if (n) std::memcpy(b, inputData + inputPos, n);
    inputPos += n;
    return static_cast<uint16_t>(b[0] | (b[1] << 8));
}

uint32_t InputStream::readU32() {
    uint8_t b[4] = {};
    uint32_t n = remaining() < 4 ? remaining() : 4;
    if (n) std::memcpy(b, inputData + inputPos, n);
    inputPos += n;
    return static_cast<uint32_t>(b[0]) | (static_cast<uint32_t>(b[1]) << 8) |
           (static_cast<uint32_t>(b[2]) << 16) | (static_cast<uint32_t>(b[3]) << 24);
}

void InputStream::skip(uint32_t count) { inputPos += count < remaining() ? count : remaining(); }

}  // namespace deqaz
