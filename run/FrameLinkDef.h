// What libkelvo_frame's dictionary makes known to ROOT and Python.

// clang-format off
#ifdef __CLING__

#pragma link off all globals;
#pragma link off all classes;
#pragma link off all functions;

#pragma link C++ namespace kelvo;

#pragma link C++ function kelvo::DefineFit;

#endif
