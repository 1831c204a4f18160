#include "SourceSystem.h"

#include "perforce/PerforceSource.h"

namespace ORVANE {
namespace IMP {

CSourceSystem::~CSourceSystem() = default;

std::unique_ptr<CSourceSystem> MakeSourceSystem(const std::string& strProvider, const TSourceOptions& tOptions,
                                                std::function<void(const std::string&)> fnSay)
{
    if (strProvider == "p4")
        return std::unique_ptr<CSourceSystem>(new CPerforceSource(tOptions, std::move(fnSay)));
    return std::unique_ptr<CSourceSystem>(new CSourceSystem(tOptions, std::move(fnSay)));
}

} // namespace IMP
} // namespace ORVANE
