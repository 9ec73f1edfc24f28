#include "bundle/EmbeddedManifest.h"

#include <cstring>
#include <fstream>
#include <stdexcept>

namespace cppmicroservices
{
    namespace
    {
        [[noreturn]] void
        Fail(std::string const& path, std::string const& reason)
        {
            throw std::runtime_error("Failed to install bundle library at location " + path + ": " + reason);
        }
    } // namespace

    std::string
    EmbeddedManifest::Read(std::string const& path)
    {
        std::ifstream file(path, std::ios::binary);
        if (!file)
        {
            Fail(path, "the file cannot be opened");
        }
        file.seekg(0, std::ios::end);
        std::streamoff const size = file.tellg();
        if (size < 0)
        {
            Fail(path, "the file cannot be read");
        }
        if (static_cast<std::size_t>(size) < kTrailerSize)
        {
            Fail(path, "the file holds no embedded bundle manifest");
        }

        char trailer[kTrailerSize];
        file.seekg(size - static_cast<std::streamoff>(kTrailerSize));
        if (!file.read(trailer, kTrailerSize))
        {
            Fail(path, "the file cannot be read");
        }
        if (std::memcmp(trailer + kLengthDigits, kMagic, kMagicSize) != 0)
        {
            Fail(path, "the file holds no embedded bundle manifest");
        }

        std::size_t length = 0;
        for (std::size_t i = 0; i < kLengthDigits; ++i)
        {
            char const c = trailer[i];
            if (c < '0' || c > '9')
            {
                Fail(path, "the embedded manifest trailer is corrupt");
            }
            length = length * 10 + static_cast<std::size_t>(c - '0');
            if (length > kMaxManifestSize)
            {
                Fail(path, "the embedded manifest is larger than 4 MiB");
            }
        }
        if (length > static_cast<std::size_t>(size) - kTrailerSize)
        {
            Fail(path, "the embedded manifest is longer than the file");
        }

        std::string manifest(length, '\0');
        file.seekg(size - static_cast<std::streamoff>(kTrailerSize + length));
        if (length != 0 && !file.read(manifest.data(), static_cast<std::streamsize>(length)))
        {
            Fail(path, "the file cannot be read");
        }
        return manifest;
    }
} // namespace cppmicroservices
