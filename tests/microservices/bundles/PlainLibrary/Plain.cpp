extern "C" int
test_plain_library_function()
{
    return 1;
}
