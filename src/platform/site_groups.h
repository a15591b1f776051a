#pragma once

// The site's names of the workstation's three user groups. POSIX group names cannot hold blanks,
// so a site says which of its groups stand for "Sorvantel Operators", "Sorvantel Supervisors"
// and "Sorvantel Administrators" in a root-owned file that the operators cannot write:
//
//     # /etc/sorvantel/accounts.conf
//     operatorsgroup = plant-ops
//     supervisorsgroup = plant-leads
//     administratorsgroup = plant-admins
//
// Keys in any case, blanks around the "=" ignored, lines starting with # or ; and [section]
// lines skipped. A missing file or key gives the defaults. A file that is not owned by root or
// that others can write is not trusted and gives the defaults too: otherwise whoever could write
// it could name their own group the administrators.
//
// Plain C++ over libc, since the password-check helper reads it with the shadow group.

#include <cstddef>
#include <string>

#ifndef SORVANTEL_SITE_GROUPS_FILE
#define SORVANTEL_SITE_GROUPS_FILE "/etc/sorvantel/accounts.conf"
#endif

struct SiteGroups {
    std::string operators = "sorvantel-operators";
    std::string supervisors = "sorvantel-supervisors";
    std::string administrators = "sorvantel-administrators";
    bool fromFile = false; // the file was there and trusted
    // Why a file that is there (or whose folder is) could not be read, with the system's word:
    // the names are the defaults then, but the site may have named others, which the password
    // helper may be able to read. Empty when the file was read, is missing or is not trusted.
    std::string unreadable;

    // The system's level of a group of this machine: 0, 1, 2, or -1 for any other group.
    int levelOf(const std::string& group) const;
};

inline constexpr size_t kMaxSiteGroupsBytes = 65536;

SiteGroups readSiteGroups(const char* path = SORVANTEL_SITE_GROUPS_FILE);
// The file's text read as above, trusted or not.
SiteGroups parseSiteGroups(const std::string& text);
