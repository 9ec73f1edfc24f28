// A tiny shared library the loader tests open, search and unload.

extern "C" {

int sample_counter = 0;

int sample_add(int a, int b) { return a + b; }

int sample_increment() { return ++sample_counter; }
}
