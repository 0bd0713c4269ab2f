// What libkelvo_io's dictionary makes known to ROOT and Python.

// clang-format off
#ifdef __CLING__

#pragma link off all globals;
#pragma link off all classes;
#pragma link off all functions;

#pragma link C++ namespace kelvo;

#pragma link C++ class kelvo::FileError-;
#pragma link C++ class kelvo::Detector-;
#pragma link C++ enum kelvo::HitColumn;
#pragma link C++ class kelvo::HitColumns-;
#pragma link C++ struct kelvo::HitReaderOptions-;
#pragma link C++ class kelvo::HitSource-;
#pragma link C++ class kelvo::HitReader-;
#pragma link C++ enum kelvo::HitLayout;
#pragma link C++ class kelvo::HitArrays-;
#pragma link C++ struct kelvo::HypothesisSummary-;
#pragma link C++ struct kelvo::FitSummary-;
#pragma link C++ struct kelvo::FitColumn-;
#pragma link C++ class kelvo::FitColumns-;
#pragma link C++ struct kelvo::FitTableOptions-;
#pragma link C++ class kelvo::FitTable-;
#pragma link C++ function kelvo::FitOneTrack;
#pragma link C++ function kelvo::DefineFit;
#pragma link C++ struct kelvo::LineFitCalls<kelvo::Lutz>-;
#pragma link C++ struct kelvo::LineFitCalls<kelvo::KinkSmoother>-;
#pragma link C++ struct kelvo::ArrayCalls-;

#endif
