// The checks that a scenario passes before the model runs, and the calculation behind them.
#pragma once

#include <cstdint>

#include "screening/inputs.h"

namespace quil {

// Each check returns 1 when it rejects the inputs, with its message copied and the flag set, and 0 when it accepts them
// or does not apply, with both untouched. The flag is 1 when the user can correct the input on the form, 0 when the
// fault lies in the chemical's record or in the calling script.
using ScreeningCheck = std::int32_t(const ScreeningInputs& inputs, MessageBuffer& message, std::uint8_t* flag);

ScreeningCheck checkLOC;
ScreeningCheck checkphy_state;
ScreeningCheck checkopen_urban;
ScreeningCheck checkwind_speed_unit;
ScreeningCheck checkwind_speed;
ScreeningCheck checkstab_class;
ScreeningCheck checkrel_duratn;
ScreeningCheck checkrel_quant_unit;
ScreeningCheck checkrel_quant;
ScreeningCheck checkrel_quant_concentration;
ScreeningCheck checksol_storge;
ScreeningCheck checklfm;
ScreeningCheck checkliq_storge;
ScreeningCheck checklfa;
ScreeningCheck checklfb;
ScreeningCheck checkdike_area_unit;
ScreeningCheck checkdike_area;

// The threat distance in metres, or -1.0 when a check rejects the inputs. Writes all three: on success an empty message
// and zeros, else the first rejecting check's message, code (2 to 16, 18 or 19) and flag.
double CalculatePlumeDistance(const ScreeningInputs& inputs, MessageBuffer& message, std::int16_t* errorCode,
                              std::uint8_t* userCorrectable);

}  // namespace quil
