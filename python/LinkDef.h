// What libkelvo_python's dictionary makes known to ROOT and Python.

// clang-format off
#ifdef __CLING__

#pragma link off all globals;
#pragma link off all classes;
#pragma link off all functions;

#pragma link C++ namespace kelvo;

#pragma link C++ struct kelvo::LineFitCalls<kelvo::Lutz>-;
#pragma link C++ struct kelvo::LineFitCalls<kelvo::KinkSmoother>-;
#pragma link C++ struct kelvo::ArrayCalls-;
#pragma link C++ class kelvo::FitArrays-;
#pragma link C++ enum kelvo::HitLayout;
#pragma link C++ class kelvo::HitArrays-;

#endif
