#pragma once

// The caption of the texts the engine and the facade show to the user.
constexpr const char *kCaption = "Quendarik";
