// SPDX-License-Identifier: Apache-2.0
// What a program of the library costs that does nothing: loading it, and all that it stands on.
int main(void) {
    return 0;
}
