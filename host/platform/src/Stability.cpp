#include <android/binder_stability.h>

void AIBinder_markVendorStability(AIBinder* /*binder*/) {}

void AIBinder_markCompilationUnitStability(AIBinder* /*binder*/) {}

void AIBinder_markVintfStability(AIBinder* /*binder*/) {}
