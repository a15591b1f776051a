// The site's groups file (/etc/sorvantel/accounts.conf), read by the workstation and by the
// setgid password helper: which groups stand for the operators, supervisors and administrators.
// Whatever the file holds, a name is the default or a value the file gave, trimmed; the names
// written back as the file's own keys read the same; and a key on a later line always decides,
// so that no earlier line can hide the one the site added last.

#include "fuzz_support.h"
#include "platform/site_groups.h"

#include <cctype>
#include <string>

namespace {
bool isFrom(const std::string& name, const std::string& fallback, const std::string& text) {
    if (name == fallback)
        return true;
    return !name.empty() && !std::isspace(uchar(name.front())) &&
           !std::isspace(uchar(name.back())) && name.find('\n') == std::string::npos &&
           text.find(name) != std::string::npos;
}

std::string asFile(const SiteGroups& g) {
    return "operatorsgroup=" + g.operators + "\nsupervisorsgroup=" + g.supervisors +
           "\nadministratorsgroup=" + g.administrators + "\n";
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const SiteGroups defaults;
    const SiteGroups read = parseSiteGroups(text);
    require(isFrom(read.operators, defaults.operators, text) &&
                isFrom(read.supervisors, defaults.supervisors, text) &&
                isFrom(read.administrators, defaults.administrators, text),
            "a group name is the default or a trimmed value of the file");
    const SiteGroups again = parseSiteGroups(asFile(read));
    require(again.operators == read.operators && again.supervisors == read.supervisors &&
                again.administrators == read.administrators,
            "the names written back as keys read the same");
    const SiteGroups last = parseSiteGroups(text + "\nAdministratorsGroup = site-admins\n");
    require(last.administrators == "site-admins" && last.operators == read.operators,
            "a later line decides");
    return 0;
}
