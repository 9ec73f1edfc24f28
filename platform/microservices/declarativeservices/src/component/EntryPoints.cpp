#include "component/EntryPoints.h"

// The framework's loader for bundles without an activator: it loads the
// library once per bundle and hands it the bundle's context.
#include "bundle/BundleLibrary.h"

#include <stdexcept>

namespace cppmicroservices::ds
{
    namespace
    {
        std::string
        SymbolSuffix(std::string name)
        {
            for (auto pos = name.find("::"); pos != std::string::npos; pos = name.find("::", pos + 1))
            {
                name.replace(pos, 2, "_");
            }
            return name;
        }
    } // namespace

    std::string
    EntryPoints::NewSymbol(std::string const& componentName)
    {
        return "NewInstance_" + SymbolSuffix(componentName);
    }

    std::string
    EntryPoints::DeleteSymbol(std::string const& componentName)
    {
        return "DeleteInstance_" + SymbolSuffix(componentName);
    }

    EntryPoints
    EntryPoints::Resolve(Bundle const& bundle, std::string const& componentName)
    {
        std::string const who = "component '" + componentName + "' of bundle '" + bundle.GetSymbolicName() + "'";
        storage::sharedlib::SharedLibrary library;
        try
        {
            library = BundleLibrary::Load(bundle);
        }
        catch (std::exception const& e)
        {
            throw std::runtime_error("Cannot load the library of " + who + ": " + e.what());
        }
        EntryPoints points;
        auto const newSymbol = NewSymbol(componentName);
        points.create = reinterpret_cast<NewFn>(library.findSymbol(newSymbol));
        if (points.create == nullptr)
        {
            throw std::runtime_error("The library of " + who + " has no symbol " + newSymbol);
        }
        auto const deleteSymbol = DeleteSymbol(componentName);
        points.destroy = reinterpret_cast<DeleteFn>(library.findSymbol(deleteSymbol));
        if (points.destroy == nullptr)
        {
            throw std::runtime_error("The library of " + who + " has no symbol " + deleteSymbol);
        }
        return points;
    }
} // namespace cppmicroservices::ds
