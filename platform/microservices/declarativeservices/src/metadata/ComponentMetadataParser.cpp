#include "metadata/ComponentMetadataParser.h"

#include "metadata/ManifestValues.h"
#include "metadata/ReferenceMetadataParser.h"

#include <algorithm>
#include <set>
#include <stdexcept>

namespace cppmicroservices::ds
{
    namespace
    {
        void
        ParseService(AnyMap const& map, ComponentMetadata& result)
        {
            auto const* service = ManifestValues::Find(map, "service");
            if (service == nullptr)
            {
                return;
            }
            auto const& serviceMap = ManifestValues::Map(*service, "service must be a JSON object");
            std::string const interfacesError = "service.interfaces must be a non-empty array of non-empty strings";
            auto const* interfaces = ManifestValues::Find(serviceMap, "interfaces");
            if (interfaces == nullptr)
            {
                throw std::invalid_argument(interfacesError);
            }
            for (auto const& name : ManifestValues::StringArray(*interfaces, false, interfacesError))
            {
                result.serviceInterfaces.push_back(ManifestValues::WithoutLeadingScope(name));
            }
            if (auto const* scope = ManifestValues::Find(serviceMap, "scope"))
            {
                result.serviceScope = ManifestValues::Choice(*scope,
                                                             { "singleton", "bundle", "prototype" },
                                                             "service.scope must be singleton, bundle or prototype");
            }
        }

        void
        ParseReferences(AnyMap const& map, ComponentMetadata& result)
        {
            auto const* references = ManifestValues::Find(map, "references");
            if (references == nullptr)
            {
                return;
            }
            auto const& array = ManifestValues::Array(*references, "references must be an array");
            std::set<std::string> names;
            for (std::size_t i = 0; i < array.size(); ++i)
            {
                auto reference = ReferenceMetadataParser::Parse(array[i], i);
                if (!names.insert(reference.name).second)
                {
                    throw std::invalid_argument("Duplicate reference name '" + reference.name + "'");
                }
                result.references.push_back(std::move(reference));
            }
        }

        // inject-references only shapes the NewInstance_ glue a bundle
        // compiles; it is checked here so that a manifest naming an unknown
        // reference is refused rather than silently glued wrong.
        void
        CheckInjectReferences(AnyMap const& map, ComponentMetadata const& result)
        {
            auto const* inject = ManifestValues::Find(map, "inject-references");
            if (inject == nullptr || any_cast<bool>(inject) != nullptr)
            {
                return;
            }
            std::string const error = "inject-references must be a boolean or an array of reference names";
            for (auto const& name : ManifestValues::StringArray(*inject, true, error))
            {
                bool const known = std::any_of(result.references.begin(),
                                               result.references.end(),
                                               [&name](ReferenceMetadata const& r) { return r.name == name; });
                if (!known)
                {
                    throw std::invalid_argument("inject-references names the unknown reference '" + name + "'");
                }
            }
        }

        void
        ParseConfiguration(AnyMap const& map, ComponentMetadata& result, std::vector<std::string>& warnings)
        {
            auto const* policy = ManifestValues::Find(map, "configuration-policy");
            auto const* pids = ManifestValues::Find(map, "configuration-pid");
            std::string chosenPolicy = "ignore";
            if (policy != nullptr)
            {
                chosenPolicy = ManifestValues::Choice(*policy,
                                                      { "ignore", "optional", "require" },
                                                      "configuration-policy must be ignore, optional or require");
            }
            std::vector<std::string> chosenPids;
            if (pids != nullptr)
            {
                std::string const error = "configuration-pid must be an array of non-empty strings";
                std::set<std::string> seen;
                for (auto pid : ManifestValues::StringArray(*pids, false, error))
                {
                    if (pid == "$")
                    {
                        pid = result.name;
                    }
                    if (!seen.insert(pid).second)
                    {
                        throw std::invalid_argument("Duplicate configuration-pid '" + pid + "'");
                    }
                    chosenPids.push_back(pid);
                }
            }
            if ((policy == nullptr) != (pids == nullptr))
            {
                warnings.push_back("configuration-policy and configuration-pid must be given together; "
                                   "the component ignores configurations");
                return;
            }
            if (chosenPolicy != "ignore")
            {
                result.configurationPolicy = chosenPolicy;
                result.configurationPids = std::move(chosenPids);
            }
        }
    } // namespace

    ComponentMetadata
    ComponentMetadataParser::Parse(Any const& component, std::vector<std::string>& warnings)
    {
        auto const& map = ManifestValues::Map(component, "The component must be a JSON object");
        ComponentMetadata result;

        auto const* implementation = ManifestValues::Find(map, "implementation-class");
        if (implementation == nullptr)
        {
            throw std::invalid_argument("implementation-class is missing");
        }
        result.implementationClass
            = ManifestValues::NonEmptyString(*implementation, "implementation-class must be a non-empty string");
        result.name = result.implementationClass;
        if (auto const* name = ManifestValues::Find(map, "name"))
        {
            result.name = ManifestValues::NonEmptyString(*name, "name must be a non-empty string");
        }
        if (ManifestValues::Find(map, "factory") != nullptr)
        {
            throw std::invalid_argument("factory components are not supported");
        }
        if (auto const* enabled = ManifestValues::Find(map, "enabled"))
        {
            result.enabled = ManifestValues::Bool(*enabled, "enabled must be a boolean");
        }

        ParseService(map, result);
        result.immediate = result.serviceInterfaces.empty();
        if (auto const* immediate = ManifestValues::Find(map, "immediate"))
        {
            result.immediate = ManifestValues::Bool(*immediate, "immediate must be a boolean");
        }
        if (!result.immediate && result.serviceInterfaces.empty())
        {
            throw std::invalid_argument("A component without a service must be immediate");
        }
        if (result.immediate && result.serviceScope != "singleton")
        {
            throw std::invalid_argument("An immediate component must have singleton service scope");
        }

        if (auto const* properties = ManifestValues::Find(map, "properties"))
        {
            result.properties = ManifestValues::Map(*properties, "properties must be a JSON object");
        }
        ParseReferences(map, result);
        CheckInjectReferences(map, result);
        ParseConfiguration(map, result, warnings);
        return result;
    }

    std::string
    ComponentMetadataParser::NameHint(Any const& component)
    {
        auto const* map = any_cast<AnyMap>(&component);
        if (map == nullptr)
        {
            return {};
        }
        for (char const* key : { "name", "implementation-class" })
        {
            if (auto const* value = ManifestValues::Find(*map, key))
            {
                if (auto const* text = any_cast<std::string>(value); text != nullptr && !text->empty())
                {
                    return *text;
                }
            }
        }
        return {};
    }
} // namespace cppmicroservices::ds
