// The dispersion model: how far downwind the ground-level centre-line concentration of a release stays above its level
// of concern. A release rate is estimated from state and storage of the chemical, and a Gaussian plume with Briggs's
// dispersion curves for open country and for towns is solved for the distance by Newton's method.
//
// The model keeps its state in globals, set afresh by every calculation: one calculation at a time.
#pragma once

#include <cstdint>

#include "screening/inputs.h"

namespace quil {

extern double WIND;                     // metres per second
extern double LOC;                      // level of concern, grams per cubic metre
extern double QR;                       // release rate: pounds per minute in QR_Function, grams per second after RAD
extern double REL_QUANT_CONCENTRATION;  // weight percent
extern double LFA;                      // liquid factor ambient
extern double LFB;                      // liquid factor boiling
extern double LFM;                      // liquid factor molten
extern double DIKE_AREA;                // as entered, kMissingNumber when there is none
extern double DIKE_AREA_UNIT;           // unit code
extern double REL_DURATN;               // as entered
extern double REL_DURATN_UNITS;         // unit code
extern std::int16_t AREA_UNIT;          // reserved; the model does not read it
extern char SOL_STORAGE;                // S, P, M, O
extern char LIQ_STORAGE;                // A, B
extern char PHY_STATE;                  // G, L, S
extern char OPEN_URBAN;                 // O, U
extern char STAB_CLASS;                 // A to F
extern double SY1, SY2;                 // lateral dispersion coefficients
extern double SZ1, SZ2, SZ3;            // vertical ones; SZ3 selects the form of the curve

// Loads the globals and runs the model: the threat distance in metres. Unchecked inputs may give a value that is not
// finite.
double calculate(const ScreeningInputs& inputs);

// Sets the coefficients for OPEN_URBAN and STAB_CLASS. An unknown class leaves all but SY2, an unknown terrain all.
void SetDispersionGlobals();

double QR_Function(double pounds);  // release rate in pounds per minute, for an amount in pounds
double RAD(double rate);            // threat distance in metres, for a rate in pounds per minute
double guess();                     // where Newton's method starts, metres

// At the distance x downwind, in metres.
double SIGMAy(double x);   // lateral spread of the plume, metres
double SIGMAz(double x);   // vertical spread, metres
double dSIGMAy(double x);  // their slopes; that of SIGMAy is not exact
double dSIGMAz(double x);
double DISPER(double x);   // LOC less the centre-line concentration, grams per cubic metre
double dDISPER(double x);  // its slope
double yDIST(double x);    // distance from the centre line at which the concentration falls to LOC, metres

// Puts the model's globals back to what they are at load.
void ResetScreening();

}  // namespace quil
