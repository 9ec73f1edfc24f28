#ifndef CPPMICROSERVICES_BUNDLEVERSION_H
#define CPPMICROSERVICES_BUNDLEVERSION_H

#include "cppmicroservices/GlobalConfig.h"

#include <iosfwd>
#include <string>

namespace cppmicroservices
{
    /// A bundle version major.minor.micro.qualifier. The numbers are
    /// non-negative; the qualifier may hold letters, digits, '_' and '-'.
    /// Immutable and thread-safe.
    class US_Framework_EXPORT BundleVersion
    {
      public:
        /// 0.0.0
        static BundleVersion EmptyVersion();
        /// A version that is not defined; IsUndefined() is true.
        static BundleVersion UndefinedVersion();
        /// Parses "1", "1.2", "1.2.3" or "1.2.3.qualifier"; surrounding blanks
        /// are ignored and an empty string gives EmptyVersion(). Throws
        /// std::invalid_argument for anything else.
        static BundleVersion ParseVersion(std::string const& version);

        BundleVersion(unsigned int majorVersion, unsigned int minorVersion, unsigned int microVersion);
        BundleVersion(unsigned int majorVersion,
                      unsigned int minorVersion,
                      unsigned int microVersion,
                      std::string const& qualifier);
        /// Same as ParseVersion.
        explicit BundleVersion(std::string const& version);

        bool IsUndefined() const;
        unsigned int GetMajor() const;
        unsigned int GetMinor() const;
        unsigned int GetMicro() const;
        std::string GetQualifier() const;

        /// "major.minor.micro" plus ".qualifier" when there is one;
        /// "undefined" for the undefined version.
        std::string ToString() const;

        bool operator==(BundleVersion const& object) const;
        bool
        operator!=(BundleVersion const& object) const
        {
            return !(*this == object);
        }
        /// Negative, zero or positive as this is less than, equal to or
        /// greater than object; numbers compare numerically, qualifiers as
        /// strings. Throws std::logic_error if either version is undefined.
        int Compare(BundleVersion const& object) const;
        bool
        operator<(BundleVersion const& object) const
        {
            return Compare(object) < 0;
        }

      private:
        struct UndefinedTag
        {
        };
        explicit BundleVersion(UndefinedTag);

        unsigned int majorVersion;
        unsigned int minorVersion;
        unsigned int microVersion;
        std::string qualifier;
        bool undefined;
    };

    US_Framework_EXPORT std::ostream& operator<<(std::ostream& os, BundleVersion const& v);
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_BUNDLEVERSION_H
