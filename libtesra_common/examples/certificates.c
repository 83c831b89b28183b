/* Prints each certificate's subject, and the end of its validity. */
#include <stdio.h>
#include <tesra_common.h>

static int refuse(const char *file, const char *reason) {
    fprintf(stderr, "%s: %s\n", file, reason);
    return 1;
}

int main(int argc, char **argv) {
    static char chain[1 << 20]; /* a limit, as for any untrusted chain */
    if (argc != 2) {
        fprintf(stderr, "usage: certificates FILE\n");
        return 2;
    }
    FILE *file = fopen(argv[1], "rb");
    if (file == NULL) {
        return refuse(argv[1], "cannot be opened");
    }
    const uint32_t size = (uint32_t)fread(chain, 1, sizeof chain, file);
    const int failed = ferror(file);
    fclose(file);
    if (failed) {
        return refuse(argv[1], "cannot be read");
    }
    if (size == sizeof chain) {
        return refuse(argv[1], "1 MiB or more");
    }

    const uint32_t count = tesra_get_cert_count(chain, size);
    if (count == 0) {
        return refuse(argv[1], "not a readable chain");
    }
    int status = 0;
    for (uint32_t i = 0; i < count; ++i) {
        tesra_cert_data *data = tesra_get_cert_data(chain, size, (int)i);
        if (data == NULL) {
            fprintf(stderr, "certificate %u: no details\n", (unsigned)i);
            status = 1;
            continue;
        }
        /* Names may hold control characters: escape them for people. */
        printf("%s: %s\n", data->subject_common_name, data->not_after);
        tesra_free_cert_data(data);
    }
    return status;
}
