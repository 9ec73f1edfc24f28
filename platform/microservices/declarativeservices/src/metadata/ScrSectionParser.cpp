#include "metadata/ScrSectionParser.h"

#include "metadata/ComponentMetadataParser.h"
#include "metadata/ManifestValues.h"

#include <set>
#include <stdexcept>

namespace cppmicroservices::ds
{
    ScrSection
    ScrSectionParser::Parse(Any const& scr)
    {
        auto const& map = ManifestValues::Map(scr, "scr must be a JSON object");
        auto const* version = ManifestValues::Find(map, "version");
        if (version == nullptr)
        {
            throw std::invalid_argument("scr.version is missing");
        }
        auto const* number = any_cast<int>(version);
        if (number == nullptr)
        {
            throw std::invalid_argument("scr.version must be an integer");
        }
        if (*number != 1)
        {
            throw std::invalid_argument("Unsupported scr.version " + std::to_string(*number)
                                        + "; only version 1 is supported");
        }
        auto const* components = ManifestValues::Find(map, "components");
        if (components == nullptr)
        {
            throw std::invalid_argument("scr.components is missing");
        }
        auto const& array = ManifestValues::Array(*components, "scr.components must be an array");
        if (array.empty())
        {
            throw std::invalid_argument("scr.components must not be empty");
        }

        ScrSection section;
        std::set<std::string> names;
        for (std::size_t i = 0; i < array.size(); ++i)
        {
            std::vector<std::string> warnings;
            try
            {
                auto component = std::make_shared<ComponentMetadata>(ComponentMetadataParser::Parse(array[i], warnings));
                if (!names.insert(component->name).second)
                {
                    throw std::invalid_argument("Duplicate component name '" + component->name + "'");
                }
                for (auto& warning : warnings)
                {
                    section.warnings.push_back({ i, component->name, std::move(warning) });
                }
                section.components.push_back(std::move(component));
            }
            catch (std::invalid_argument const& e)
            {
                section.errors.push_back({ i, ComponentMetadataParser::NameHint(array[i]), e.what() });
            }
        }
        return section;
    }
} // namespace cppmicroservices::ds
