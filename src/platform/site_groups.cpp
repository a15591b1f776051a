#include "site_groups.h"

#include <cctype>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
std::string trimmed(const std::string& s) {
    size_t first = 0;
    size_t last = s.size();
    while (first < last && std::isspace(static_cast<unsigned char>(s[first])))
        ++first;
    while (last > first && std::isspace(static_cast<unsigned char>(s[last - 1])))
        --last;
    return s.substr(first, last - first);
}

std::string lowered(std::string s) {
    for (char& c : s)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

bool rootOnly(int fd, bool folder) {
    struct stat st {};
    return fstat(fd, &st) == 0 && (folder ? S_ISDIR(st.st_mode) : S_ISREG(st.st_mode)) &&
           st.st_uid == 0 && (st.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// A file or folder that is there but that this process may not read: the site's word is
// unknown, not absent.
bool deniedHere(int error) {
    return error == EACCES || error == EPERM || error == EIO;
}

// The file opened through its folder, both owned by root and writable by nobody else, so that
// nobody else can have written or swapped it; -1 otherwise, with *denied set when it could not
// be opened for lack of a right (or a failing disk) rather than because it is missing or
// untrusted.
int openTrusted(const char* path, int* denied) {
    *denied = 0;
    std::string folder(path);
    const size_t slash = folder.rfind('/');
    const std::string name = slash == std::string::npos ? folder : folder.substr(slash + 1);
    folder = slash == std::string::npos ? "." : slash == 0 ? "/" : folder.substr(0, slash);
    const int dir = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir < 0) {
        if (deniedHere(errno))
            *denied = errno;
        return -1;
    }
    int fd = -1;
    if (rootOnly(dir, true)) {
        fd = openat(dir, name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
        if (fd < 0 && deniedHere(errno))
            *denied = errno;
        if (fd >= 0 && !rootOnly(fd, false)) {
            close(fd);
            fd = -1;
        }
    }
    close(dir);
    return fd;
}
} // namespace

int SiteGroups::levelOf(const std::string& group) const {
    if (group == administrators)
        return 2;
    if (group == supervisors)
        return 1;
    if (group == operators)
        return 0;
    return -1;
}

SiteGroups parseSiteGroups(const std::string& text) {
    SiteGroups read;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos)
            end = text.size();
        const std::string line = trimmed(text.substr(start, end - start));
        start = end + 1;
        if (line.empty() || line[0] == '#' || line[0] == ';' || line[0] == '[')
            continue;
        const size_t equals = line.find('=');
        if (equals == std::string::npos)
            continue;
        const std::string key = lowered(trimmed(line.substr(0, equals)));
        const std::string value = trimmed(line.substr(equals + 1));
        if (value.empty())
            continue;
        if (key == "operatorsgroup")
            read.operators = value;
        else if (key == "supervisorsgroup")
            read.supervisors = value;
        else if (key == "administratorsgroup")
            read.administrators = value;
    }
    return read;
}

SiteGroups readSiteGroups(const char* path) {
    int denied = 0;
    const int fd = openTrusted(path, &denied);
    if (fd < 0) {
        SiteGroups defaults;
        if (denied)
            defaults.unreadable = std::string(path) + ": " + strerror(denied);
        return defaults;
    }
    std::string text;
    bool whole = true;
    int failed = 0;
    char buffer[4096];
    while (whole) {
        const ssize_t n = read(fd, buffer, sizeof buffer);
        if (n == 0)
            break;
        if (n < 0)
            failed = errno;
        // A file of this kind is a few lines; anything else is not the site's word.
        if (n < 0 || text.size() + static_cast<size_t>(n) > kMaxSiteGroupsBytes)
            whole = false;
        else
            text.append(buffer, static_cast<size_t>(n));
    }
    close(fd);
    if (!whole) {
        SiteGroups defaults;
        if (failed)
            defaults.unreadable = std::string(path) + ": " + strerror(failed);
        return defaults;
    }
    SiteGroups read = parseSiteGroups(text);
    read.fromFile = true;
    return read;
}
