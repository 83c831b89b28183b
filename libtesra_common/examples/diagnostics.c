/* Adds a line to the trace file; shows bytes there and in the log. */
#include <tesra_common.h>

int main(void) {
    const uint8_t answer[] = {0x10, 0x84, 0x00, 0x00, 0x01};
    const uint8_t both = TESRA_DUMP_LOG | TESRA_DUMP_TRACE;
    tesra_trace(3, "probe", __LINE__, "No answer for %d ms\n", 500);
    tesra_dump(both, "answer", answer, sizeof answer);
    return 0;
}
