/* Turns four bytes into Base64 text and back: "AP9/gA==: 4 bytes". */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tesra_common.h>

int main(void) {
    const uint8_t bytes[] = {0x00, 0xFF, 0x7F, 0x80};
    char *text = NULL;
    if (tesra_base64_encode(bytes, sizeof bytes, &text) != 0) {
        return 1;
    }
    uint32_t length = (uint32_t)strlen(text);
    uint8_t *decoded = tesra_base64_decode(text, length, &length);
    if (decoded != NULL) {
        printf("%s: %u bytes\n", text, (unsigned)length);
    }
    free(text);
    free(decoded);
    return decoded != NULL ? 0 : 1;
}
