// Fuzz inputs reach the readers as a file: one scratch file per fuzzing process.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <unistd.h>

inline const char *fuzz_write_file(const uint8_t *data, size_t size) {
    static const std::string path = "/tmp/lv_fuzz_" + std::to_string(getpid()) + ".hdr";
    FILE *f = fopen(path.c_str(), "wb");
    if (!f) return nullptr;
    fwrite(data, 1, size, f);
    fclose(f);
    return path.c_str();
}
