/* Prints each certificate's subject, and the end of its validity. */
#include <stdio.h>
#include <tesra_common.h>

int main(int argc, char **argv) {
    static char chain[65536];
    FILE *file = argc == 2 ? fopen(argv[1], "rb") : NULL;
    if (file == NULL) {
        return 2;
    }
    const uint32_t size = (uint32_t)fread(chain, 1, sizeof chain, file);
    fclose(file);

    const uint32_t count = tesra_get_cert_count(chain, size);
    for (uint32_t i = 0; i < count; ++i) {
        tesra_cert_data *data = tesra_get_cert_data(chain, size, (int)i);
        if (data == NULL) {
            return 1;
        }
        /* Names may hold control characters: escape them for people. */
        printf("%s: %s\n", data->subject_common_name, data->not_after);
        tesra_free_cert_data(data);
    }
    return count > 0 ? 0 : 1;
}
