// What libkelvo_run's dictionary makes known to ROOT and Python.

// clang-format off
#ifdef __CLING__

#pragma link off all globals;
#pragma link off all classes;
#pragma link off all functions;

#pragma link C++ namespace kelvo;

#pragma link C++ struct kelvo::HypothesisSummary-;
#pragma link C++ struct kelvo::FitSummary-;
#pragma link C++ struct kelvo::FitColumn-;
#pragma link C++ class kelvo::FitColumns-;
#pragma link C++ struct kelvo::FitRunOptions-;
#pragma link C++ class kelvo::FitTable-;
#pragma link C++ function kelvo::FitOneTrack;

#endif
