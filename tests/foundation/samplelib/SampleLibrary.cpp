// A tiny shared library the loader test opens, searches and unloads.

extern "C" int sample_add(int a, int b) { return a + b; }
