#include "site_groups.h"

#include <cctype>
#include <cstdio>
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

// Owned by root and writable by nobody else; the same of the folder it lies in, so that
// nobody else can swap it.
bool trusted(int fd, const char* path) {
    struct stat file {};
    if (fstat(fd, &file) != 0 || !S_ISREG(file.st_mode) || file.st_uid != 0 ||
        (file.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        return false;
    std::string folder(path);
    const size_t slash = folder.rfind('/');
    folder = slash == std::string::npos ? "." : slash == 0 ? "/" : folder.substr(0, slash);
    struct stat dir {};
    return stat(folder.c_str(), &dir) == 0 && dir.st_uid == 0 &&
           (dir.st_mode & (S_IWGRP | S_IWOTH)) == 0;
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

SiteGroups readSiteGroups(const char* path) {
    SiteGroups groups;
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0)
        return groups;
    if (!trusted(fd, path)) {
        close(fd);
        return groups;
    }
    FILE* file = fdopen(fd, "r");
    if (!file) {
        close(fd);
        return groups;
    }
    SiteGroups read;
    char buffer[512];
    while (fgets(buffer, sizeof buffer, file)) {
        const std::string line = trimmed(buffer);
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
    fclose(file);
    read.fromFile = true;
    return read;
}
