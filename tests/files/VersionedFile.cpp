// A DLL for its version resource only.
extern "C" __declspec(dllexport) int VersionedFile()
{
    return 0;
}
