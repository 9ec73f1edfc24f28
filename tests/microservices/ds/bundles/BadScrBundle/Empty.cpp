// A bundle whose scr section has an unsupported version: none of its
// components may load.
extern "C" int
ds_test_bad_scr_marker()
{
    return 0;
}
