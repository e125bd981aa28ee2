// The status text of a Client as JSON.
//
// Threads: any.
#pragma once

#include <string>

namespace OstrandCli {

// An object with the list "sections", one for each line of the text that is not indented (its
// "title"). A section has
//   "figures"   an object: counters as numbers, anything else as text; units are left out
//   "proxies"   an object: for each state of the connection a list of lines, address first
//   "delays"    an object: for each measured stage its figures
//   "tables"    a list of objects: "name" and "figures"
//   "accesses"  a list of objects: "url", "id", "figures" and "delays"
// of which the empty ones are left out. Lines of another form are left out.
std::string StatusAsJson(const std::string& status_text);

}  // namespace OstrandCli
