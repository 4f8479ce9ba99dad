#pragma once

#if defined(_WIN32)
#  if defined(QARVO_BUILDING_RULESTORE)
#    define QARVO_RULESTORE_EXPORT __declspec(dllexport)
#  else
#    define QARVO_RULESTORE_EXPORT __declspec(dllimport)
#  endif
#else
#  define QARVO_RULESTORE_EXPORT __attribute__((visibility("default")))
#endif
