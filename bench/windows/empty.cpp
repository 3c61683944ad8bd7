// A library that does nothing. Loading it takes the least time that a library can take.
extern "C" int EmptyAnswer() { return 42; }
