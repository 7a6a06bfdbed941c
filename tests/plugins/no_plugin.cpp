// A library that can be loaded but has no entry point of a plug-in.

extern "C" int nothingThatAHostLooksFor();
extern "C" int nothingThatAHostLooksFor() {
    return 0;
}
