// Nothing but the glue from the generated init source.
extern "C" int
test_missing_activator_nothing()
{
    return 0;
}
