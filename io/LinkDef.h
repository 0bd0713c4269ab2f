// What libkelvo_io's dictionary makes known to ROOT and Python.

// clang-format off
#ifdef __CLING__

#pragma link off all globals;
#pragma link off all classes;
#pragma link off all functions;

#pragma link C++ namespace kelvo;

#pragma link C++ class kelvo::FileError-;
#pragma link C++ enum kelvo::HitColumn;
#pragma link C++ struct kelvo::HitConventions-;
#pragma link C++ function kelvo::CheckHitConventions;
#pragma link C++ class kelvo::HitColumns-;
#pragma link C++ struct kelvo::HitReaderOptions-;
#pragma link C++ class kelvo::HitSource-;
#pragma link C++ class kelvo::HitReader-;

#endif
