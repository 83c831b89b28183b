#include "input.h"

#include "messages.h"

#include <sys/stat.h>
#include <tesra_owned.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

namespace {

// The library takes no text of 2^31 bytes or more, so no more than that is read.
std::string read_all(const std::string &path) {
    const tesra_owned<FILE, fclose> file(path == "-" ? fdopen(dup(STDIN_FILENO), "rb")
                                                     : fopen(path.c_str(), "rb"));
    struct stat status = {};
    if (file == nullptr || fstat(fileno(file.get()), &status) != 0) {
        throw refusal(strerror(errno));
    }
    std::string bytes;
    char chunk[65536];
    size_t got = 1;
    while (got > 0 && status.st_size <= INT_MAX && bytes.size() <= INT_MAX) {
        got = fread(chunk, 1, sizeof chunk, file.get());
        bytes.append(chunk, got);
    }
    if (got > 0 || ferror(file.get()) != 0) {
        throw refusal(got > 0 ? "2 GiB or larger" : strerror(errno));
    }
    return bytes;
}

} // namespace

int for_each_file(
    const std::vector<std::string> &paths, const std::function<bool(const input &file)> &handle,
    const std::function<void(const std::string &path, const std::string &error)> &refuse) {
    const std::vector<std::string> standard_input = {"-"};
    bool all_good = true;
    for (const std::string &path : paths.empty() ? standard_input : paths) {
        const std::string name = path == "-" ? "standard input" : escaped(path);
        try {
            const input file = {path, name, read_all(path)};
            all_good = handle(file) && all_good;
        } catch (const std::exception &reason) {
            const std::string error = name + ": " + reason.what();
            complain(error);
            if (refuse) {
                refuse(path, error);
            }
            all_good = false;
        }
    }
    return all_good ? 0 : 1;
}
