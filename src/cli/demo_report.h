// What `demo` answers, for the eye and as JSON. Threads: no state.
#pragma once

#include <string>

#include "cli/demo.h"

namespace OstrandCli {

std::string DemoText(const DemoResult& result);
std::string DemoJson(const DemoResult& result);

}  // namespace OstrandCli
