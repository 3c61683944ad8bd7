// A library that does nothing: what loading costs at least.
extern "C" int EmptyAnswer() { return 42; }
