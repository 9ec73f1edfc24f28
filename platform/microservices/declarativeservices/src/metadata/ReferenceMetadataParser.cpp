#include "metadata/ReferenceMetadataParser.h"

#include "metadata/ManifestValues.h"

#include "cppmicroservices/LDAPFilter.h"

#include <stdexcept>
#include <string>

namespace cppmicroservices::ds
{
    ReferenceMetadata
    ReferenceMetadataParser::Parse(Any const& reference, std::size_t index)
    {
        std::string const prefix = "references[" + std::to_string(index) + "]";
        auto const& map = ManifestValues::Map(reference, prefix + " must be a JSON object");

        ReferenceMetadata result;
        auto const* name = ManifestValues::Find(map, "name");
        if (name == nullptr)
        {
            throw std::invalid_argument(prefix + ".name is missing");
        }
        result.name = ManifestValues::NonEmptyString(*name, prefix + ".name must be a non-empty string");

        auto const* interfaceName = ManifestValues::Find(map, "interface");
        if (interfaceName == nullptr)
        {
            throw std::invalid_argument(prefix + ".interface is missing");
        }
        result.interfaceName = ManifestValues::WithoutLeadingScope(
            ManifestValues::NonEmptyString(*interfaceName, prefix + ".interface must be a non-empty string"));

        if (auto const* cardinality = ManifestValues::Find(map, "cardinality"))
        {
            auto const choice = ManifestValues::Choice(*cardinality,
                                                       { "1..1", "0..1", "1..n", "0..n" },
                                                       prefix + ".cardinality must be 0..1, 1..1, 0..n or 1..n");
            result.optional = choice[0] == '0';
            result.multiple = choice[3] == 'n';
        }
        if (auto const* policy = ManifestValues::Find(map, "policy"))
        {
            result.dynamic = ManifestValues::Choice(*policy,
                                                    { "static", "dynamic" },
                                                    prefix + ".policy must be static or dynamic")
                             == std::string("dynamic");
        }
        if (auto const* option = ManifestValues::Find(map, "policy-option"))
        {
            result.greedy = ManifestValues::Choice(*option,
                                                   { "reluctant", "greedy" },
                                                   prefix + ".policy-option must be reluctant or greedy")
                            == std::string("greedy");
        }
        if (auto const* target = ManifestValues::Find(map, "target"))
        {
            auto const* text = any_cast<std::string>(target);
            if (text == nullptr)
            {
                throw std::invalid_argument(prefix + ".target must be a string");
            }
            if (!text->empty())
            {
                try
                {
                    LDAPFilter const filter(*text);
                }
                catch (std::exception const& e)
                {
                    throw std::invalid_argument(prefix + ".target is not a valid LDAP filter: " + e.what());
                }
            }
            result.target = *text;
        }
        if (auto const* scope = ManifestValues::Find(map, "scope"))
        {
            result.scope = ManifestValues::Choice(*scope,
                                                  { "bundle", "prototype", "prototype-required" },
                                                  prefix + ".scope must be bundle, prototype or prototype-required");
        }
        return result;
    }
} // namespace cppmicroservices::ds
