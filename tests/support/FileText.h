#pragma once

#include <fstream>
#include <iterator>
#include <string>

// Whole-file reads and writes for tests, byte for byte (no line end changes).
inline std::string ReadText(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// Returns false when the file could not be written in full.
inline bool WriteText(const std::string& path, const std::string& contents)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << contents;
    return file.good();
}
