#include "input.h"

#include "messages.h"
#include "owned.h"

#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

namespace {

using file_ptr = tesra_owned<FILE, fclose>;

// The library takes no text of 2^31 bytes or more, so no more than that is read.
std::string read_all(const std::string &path, const std::string &name) {
    const file_ptr opened(path == "-" ? nullptr : fopen(path.c_str(), "rb"));
    FILE *const file = path == "-" ? stdin : opened.get();
    struct stat status = {};
    if (file == nullptr || fstat(fileno(file), &status) != 0) {
        throw refusal(name + ": " + strerror(errno));
    }
    std::string bytes;
    size_t size = S_ISREG(status.st_mode) ? static_cast<size_t>(status.st_size) : 0;
    char chunk[65536];
    for (size_t got = 1; got > 0 && size <= INT_MAX; size = bytes.size()) {
        got = fread(chunk, 1, sizeof chunk, file);
        bytes.append(chunk, got);
    }
    if (ferror(file) != 0 || size > INT_MAX) {
        throw refusal(name + ": " + (size > INT_MAX ? "2 GiB or larger" : strerror(errno)));
    }
    return bytes;
}

} // namespace

int for_each_file(
    const command_line &given, const std::function<bool(const input &file)> &handle,
    const std::function<void(const std::string &path, const std::string &error)> &refuse) {
    const std::vector<std::string> paths =
        given.words.empty() ? std::vector<std::string>{"-"} : given.words;
    int status = 0;
    for (const std::string &path : paths) {
        const std::string name = path == "-" ? "standard input" : escaped(path);
        std::string error;
        try {
            if (!handle({path, name, read_all(path, name)})) {
                status = 1;
            }
            continue;
        } catch (const refusal &reason) {
            error = reason.what();
        } catch (const std::bad_alloc &) {
            error = name + ": out of memory";
        }
        status = 1;
        complain(error);
        if (refuse) {
            refuse(path, error);
        }
    }
    return status;
}
