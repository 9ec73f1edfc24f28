#ifndef CPPMICROSERVICES_SRC_BUNDLE_EMBEDDEDMANIFEST_H
#define CPPMICROSERVICES_SRC_BUNDLE_EMBEDDEDMANIFEST_H

#include <cstddef>
#include <string>

namespace cppmicroservices
{
    // Reads the manifest that the build appended to a bundle library
    // (cmake/Bundles.cmake, run as a script, writes it).
    //
    // Layout at the very end of the file:
    //   <manifest JSON bytes><16 decimal digits: manifest length><16-byte magic>
    // The dynamic loader ignores bytes after the ELF image, so the library
    // stays loadable, and the manifest can be read without loading it.
    class EmbeddedManifest
    {
      public:
        static constexpr char const kMagic[] = "#US-MANIFEST-V1#"; // 16 characters
        static constexpr std::size_t kMagicSize = 16;
        static constexpr std::size_t kLengthDigits = 16;
        static constexpr std::size_t kTrailerSize = kLengthDigits + kMagicSize;
        static constexpr std::size_t kMaxManifestSize = 4u << 20;

        // The manifest text of the file at path. Throws std::runtime_error
        // "Failed to install bundle library at location <path>: <reason>"
        // when the file cannot be read or holds no well-formed trailer. Never
        // allocates more than kMaxManifestSize for the manifest.
        static std::string Read(std::string const& path);
    };
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_SRC_BUNDLE_EMBEDDEDMANIFEST_H
