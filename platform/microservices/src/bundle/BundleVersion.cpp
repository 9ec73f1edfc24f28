#include "cppmicroservices/BundleVersion.h"

#include <cctype>
#include <limits>
#include <ostream>
#include <stdexcept>
#include <vector>

namespace cppmicroservices
{
    namespace
    {
        std::string
        Trim(std::string const& s)
        {
            auto const first = s.find_first_not_of(" \t\r\n");
            if (first == std::string::npos)
            {
                return std::string();
            }
            auto const last = s.find_last_not_of(" \t\r\n");
            return s.substr(first, last - first + 1);
        }

        unsigned int
        ParseNumber(std::string const& part, std::string const& version)
        {
            if (part.empty() || part.size() > 9)
            {
                throw std::invalid_argument("Invalid version \"" + version + "\": bad number \"" + part + "\"");
            }
            unsigned int n = 0;
            for (char c : part)
            {
                if (c < '0' || c > '9')
                {
                    throw std::invalid_argument("Invalid version \"" + version + "\": bad number \"" + part + "\"");
                }
                n = n * 10 + static_cast<unsigned int>(c - '0');
            }
            return n;
        }

        void
        CheckQualifier(std::string const& qualifier, std::string const& version)
        {
            for (char c : qualifier)
            {
                if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-'))
                {
                    throw std::invalid_argument("Invalid version \"" + version + "\": bad qualifier \"" + qualifier
                                                + "\"");
                }
            }
        }
    } // namespace

    BundleVersion
    BundleVersion::EmptyVersion()
    {
        return BundleVersion(0, 0, 0);
    }

    BundleVersion
    BundleVersion::UndefinedVersion()
    {
        return BundleVersion(UndefinedTag{});
    }

    BundleVersion
    BundleVersion::ParseVersion(std::string const& version)
    {
        return BundleVersion(version);
    }

    BundleVersion::BundleVersion(UndefinedTag)
        : majorVersion(0)
        , minorVersion(0)
        , microVersion(0)
        , undefined(true)
    {
    }

    BundleVersion::BundleVersion(unsigned int majorVersion, unsigned int minorVersion, unsigned int microVersion)
        : BundleVersion(majorVersion, minorVersion, microVersion, std::string())
    {
    }

    BundleVersion::BundleVersion(unsigned int majorVersion,
                                 unsigned int minorVersion,
                                 unsigned int microVersion,
                                 std::string const& qualifier)
        : majorVersion(majorVersion)
        , minorVersion(minorVersion)
        , microVersion(microVersion)
        , qualifier(qualifier)
        , undefined(false)
    {
        CheckQualifier(qualifier, ToString());
    }

    BundleVersion::BundleVersion(std::string const& text)
        : majorVersion(0)
        , minorVersion(0)
        , microVersion(0)
        , undefined(false)
    {
        std::string const version = Trim(text);
        if (version.empty())
        {
            return;
        }
        std::vector<std::string> parts;
        std::size_t start = 0;
        for (;;)
        {
            auto const dot = version.find('.', start);
            if (parts.size() == 3)
            {
                parts.push_back(version.substr(start)); // the qualifier may not contain dots either
                if (parts.back().find('.') != std::string::npos)
                {
                    throw std::invalid_argument("Invalid version \"" + version + "\": too many parts");
                }
                break;
            }
            parts.push_back(version.substr(start, dot == std::string::npos ? std::string::npos : dot - start));
            if (dot == std::string::npos)
            {
                break;
            }
            start = dot + 1;
        }
        majorVersion = ParseNumber(parts[0], version);
        if (parts.size() > 1)
        {
            minorVersion = ParseNumber(parts[1], version);
        }
        if (parts.size() > 2)
        {
            microVersion = ParseNumber(parts[2], version);
        }
        if (parts.size() > 3)
        {
            if (parts[3].empty())
            {
                throw std::invalid_argument("Invalid version \"" + version + "\": empty qualifier");
            }
            qualifier = parts[3];
            CheckQualifier(qualifier, version);
        }
    }

    bool
    BundleVersion::IsUndefined() const
    {
        return undefined;
    }

    unsigned int
    BundleVersion::GetMajor() const
    {
        return majorVersion;
    }

    unsigned int
    BundleVersion::GetMinor() const
    {
        return minorVersion;
    }

    unsigned int
    BundleVersion::GetMicro() const
    {
        return microVersion;
    }

    std::string
    BundleVersion::GetQualifier() const
    {
        return qualifier;
    }

    std::string
    BundleVersion::ToString() const
    {
        if (undefined)
        {
            return "undefined";
        }
        std::string s = std::to_string(majorVersion) + "." + std::to_string(minorVersion) + "."
                        + std::to_string(microVersion);
        if (!qualifier.empty())
        {
            s += "." + qualifier;
        }
        return s;
    }

    bool
    BundleVersion::operator==(BundleVersion const& other) const
    {
        if (undefined || other.undefined)
        {
            return undefined == other.undefined;
        }
        return majorVersion == other.majorVersion && minorVersion == other.minorVersion
               && microVersion == other.microVersion && qualifier == other.qualifier;
    }

    int
    BundleVersion::Compare(BundleVersion const& other) const
    {
        if (undefined || other.undefined)
        {
            throw std::logic_error("Cannot compare undefined versions");
        }
        if (majorVersion != other.majorVersion)
        {
            return majorVersion < other.majorVersion ? -1 : 1;
        }
        if (minorVersion != other.minorVersion)
        {
            return minorVersion < other.minorVersion ? -1 : 1;
        }
        if (microVersion != other.microVersion)
        {
            return microVersion < other.microVersion ? -1 : 1;
        }
        return qualifier.compare(other.qualifier) < 0 ? -1 : (qualifier == other.qualifier ? 0 : 1);
    }

    std::ostream&
    operator<<(std::ostream& os, BundleVersion const& v)
    {
        return os << v.ToString();
    }
} // namespace cppmicroservices
