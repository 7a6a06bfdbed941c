#include "screening/model.h"

#include <cmath>

namespace quil {

// State of the model.
double WIND = 0;
double LOC = 0;
double QR = 0;
double REL_QUANT_CONCENTRATION = 0;
double LFA = 0;
double LFB = 0;
double LFM = 0;
double DIKE_AREA = 0;
double DIKE_AREA_UNIT = 0;
double REL_DURATN = 0;
double REL_DURATN_UNITS = 0;
std::int16_t AREA_UNIT = 0;
char SOL_STORAGE = 0;
char LIQ_STORAGE = 0;
char PHY_STATE = 0;
char OPEN_URBAN = 0;
char STAB_CLASS = 0;
double SY1 = 0, SY2 = 0;
double SZ1 = 0, SZ2 = 0, SZ3 = 0;

namespace {

constexpr double kPi = 3.14159265;                // deliberately not to full precision
constexpr double kMetersPerSecondPerMph = 0.447;  // deliberately not 0.44704
constexpr double kPoundsPerKilogram = 2.204623;   // deliberately to seven digits
constexpr double kSquareFeetPerSquareMeter = 10.76391;
constexpr double kPoundsPerMinutePerGramPerSecond = 0.132;  // deliberately to three digits
constexpr double kPoolFactor = 0.49;  // deliberate: pounds of liquid spread to pool area in square feet
constexpr double kWindExponent = 0.78;
constexpr double kLateralSlope = -0.05;  // deliberately not the exact -0.5: it shapes the steps and so the distances
constexpr double kTolerance = 0.01;      // metres; the last step is smaller
constexpr int kMaxSteps = 19;            // deliberate: after so many the last value stands as it is

struct Coefficients {
    double sy1, sz1, sz2, sz3;
};

// Briggs's curves for open country and for towns, classes A to F.
constexpr double kOpenSy2 = 0.0001;
constexpr Coefficients kOpen[] = {{0.22, 0.20, 0, 0},         {0.16, 0.12, 0, 0},       {0.11, 0.08, 0.0002, -0.5},
                                  {0.08, 0.06, 0.0015, -0.5}, {0.06, 0.03, 0.0003, -1}, {0.04, 0.016, 0.0003, -1}};
constexpr double kUrbanSy2 = 0.0004;
constexpr Coefficients kUrban[] = {{0.32, 0.24, 0.001, 0.5},   {0.32, 0.24, 0.001, 0.5},   {0.22, 0.20, 0, 0},
                                   {0.16, 0.14, 0.0003, -0.5}, {0.11, 0.08, 0.0015, -0.5}, {0.11, 0.08, 0.0015, -0.5}};

// Evaporation from a pool: by its area where a dike keeps it smaller than it would spread, else by the mass.
double poolRate(double mass, double area, double factor) {
    const double f = std::exp(kWindExponent * std::log(WIND));
    if (!Equal(area, 0.0) && area <= mass * kPoolFactor) {
        return f * area * factor / kPoolFactor;
    }
    return f * mass * factor;
}

}  // namespace

void ResetScreening() {
    WIND = LOC = QR = REL_QUANT_CONCENTRATION = LFA = LFB = LFM = 0;
    DIKE_AREA = DIKE_AREA_UNIT = REL_DURATN = REL_DURATN_UNITS = 0;
    AREA_UNIT = 0;
    SOL_STORAGE = LIQ_STORAGE = PHY_STATE = OPEN_URBAN = STAB_CLASS = 0;
    SY1 = SY2 = SZ1 = SZ2 = SZ3 = 0;
}

double calculate(const ScreeningInputs& inputs) {
    LOC = inputs.levelOfConcern;
    OPEN_URBAN = inputs.terrain;
    STAB_CLASS = inputs.stabilityClass;
    PHY_STATE = inputs.physicalState;
    SetDispersionGlobals();
    SOL_STORAGE = inputs.solidForm;
    LIQ_STORAGE = inputs.liquidTemperature;
    LFA = inputs.liquidFactorAmbient;
    LFB = inputs.liquidFactorBoiling;
    LFM = inputs.liquidFactorMolten;
    REL_DURATN = inputs.duration;
    REL_DURATN_UNITS = inputs.durationUnit;
    DIKE_AREA = inputs.dikeArea;
    DIKE_AREA_UNIT = inputs.dikeAreaUnit;
    REL_QUANT_CONCENTRATION = inputs.concentration;
    // Deliberately unlike the check of the stability class, which takes every unit but metres per second for miles per
    // hour.
    WIND = inputs.windSpeed * (inputs.windUnit == kMilesPerHour ? kMetersPerSecondPerMph : 1.0);
    // Every unit but pounds counts as kilograms.
    return RAD(QR_Function(inputs.amountUnit == kPounds ? inputs.amount : inputs.amount * kPoundsPerKilogram));
}

void SetDispersionGlobals() {
    const Coefficients* curves = nullptr;
    if (OPEN_URBAN == 'O') {
        SY2 = kOpenSy2;
        curves = kOpen;
    } else if (OPEN_URBAN == 'U') {
        SY2 = kUrbanSy2;
        curves = kUrban;
    }
    if (curves != nullptr && STAB_CLASS >= 'A' && STAB_CLASS <= 'F') {
        const Coefficients& curve = curves[STAB_CLASS - 'A'];
        SY1 = curve.sy1;
        SZ1 = curve.sz1;
        SZ2 = curve.sz2;
        SZ3 = curve.sz3;
    }
}

double QR_Function(double pounds) {
    double area = DIKE_AREA;
    if (Equal(area, kMissingNumber)) {
        area = 0.0;
    } else if (DIKE_AREA_UNIT != kSquareFeet) {
        area *= kSquareFeetPerSquareMeter;
    }
    const double mass = REL_QUANT_CONCENTRATION / 100.0 * pounds;
    double minutes = REL_DURATN;
    if (Equal(minutes, kMissingNumber)) {
        minutes = -1.0;
    } else if (REL_DURATN_UNITS != kMinutes) {
        minutes *= 60.0;
    }
    QR = mass;
    switch (PHY_STATE) {
        case 'L':
            if (LIQ_STORAGE == 'A') {
                QR = poolRate(mass, area, LFA);
            } else if (LIQ_STORAGE == 'B') {
                QR = poolRate(mass, area, LFB);
            }
            break;
        case 'S':
            if (SOL_STORAGE == 'O') {
                QR = 0.0;
            } else if (SOL_STORAGE == 'M') {
                QR = poolRate(mass, area, LFM);
            } else if (SOL_STORAGE == 'P' || SOL_STORAGE == 'S') {
                QR = mass / minutes;
            }
            break;
        case 'G':
            QR = mass / minutes;
            break;
        default:
            break;
    }
    return QR;
}

double RAD(double rate) {
    QR = rate / kPoundsPerMinutePerGramPerSecond;
    double x = guess();
    for (int i = 0; i < kMaxSteps; ++i) {
        const double step = DISPER(x) / dDISPER(x);
        x -= step;
        if (std::fabs(step) < kTolerance) {
            break;
        }
    }
    return x;
}

double guess() {
    return std::sqrt(QR / (WIND * kPi * LOC * SY1 * SZ1));
}

double SIGMAy(double x) {
    return SY1 * x / std::sqrt(1.0 + SY2 * x);
}

double SIGMAz(double x) {
    if (Equal(SZ3, -1.0)) {
        return SZ1 * x / (1.0 + SZ2 * x);
    }
    if (Equal(SZ3, -0.5)) {
        return SZ1 * x / std::sqrt(1.0 + SZ2 * x);
    }
    if (Equal(SZ3, 0.0)) {
        return SZ1 * x;
    }
    if (Equal(SZ3, 0.5)) {
        return SZ1 * x * std::sqrt(1.0 + SZ2 * x);
    }
    return 0.0;
}

double dSIGMAy(double x) {
    const double s = std::sqrt(1.0 + SY2 * x);
    return SY1 / s + x * SY2 * SY1 * kLateralSlope / (s * s * s);
}

double dSIGMAz(double x) {
    const double g = 1.0 + SZ2 * x;
    if (Equal(SZ3, -1.0)) {
        return SZ1 / g + x * SZ3 * SZ2 * SZ1 / (g * g);
    }
    if (Equal(SZ3, -0.5)) {
        return SZ1 / std::sqrt(g) + x * SZ3 * SZ2 * SZ1 / (g * std::sqrt(g));
    }
    if (Equal(SZ3, 0.0)) {
        return SZ1;
    }
    if (Equal(SZ3, 0.5)) {
        return SZ1 * std::sqrt(g) + x * SZ3 * SZ2 * SZ1 / std::sqrt(g);
    }
    return 0.0;
}

double DISPER(double x) {
    return QR / (WIND * -kPi) / (SIGMAy(x) * SIGMAz(x)) + LOC;
}

double dDISPER(double x) {
    const double sy = SIGMAy(x);
    const double sz = SIGMAz(x);
    return QR / (WIND * kPi) / (sy * sz) * (dSIGMAy(x) / sy + dSIGMAz(x) / sz);
}

double yDIST(double x) {
    return SIGMAy(x) * std::sqrt(2.0 * std::fabs(std::log(std::fabs(LOC - DISPER(x)) / LOC)));
}

}  // namespace quil
