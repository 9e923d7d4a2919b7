// SPDX-License-Identifier: Apache-2.0
// What a program costs that does nothing: the floor under the daemon's memory.
#include <unistd.h>

int main() {
    for (;;) {
        pause();
    }
}
