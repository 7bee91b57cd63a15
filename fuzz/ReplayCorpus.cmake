# Replays the seed and regression inputs of one fuzz target through its libFuzzer program,
# once each (-runs=0), and fails when one of them does. Folders are looked for when the test
# runs, so a regression folder added later needs no new configuration. libFuzzer writes new
# inputs only into the first folder it is given, which here is a scratch folder of the build
# tree: the source tree is only read.
#   cmake -DPROGRAM=<fuzz program> -DSCRATCH=<folder> -DFOLDERS=<a;b> -P ReplayCorpus.cmake
set(args "")
foreach(folder ${FOLDERS})
  if(IS_DIRECTORY "${folder}")
    list(APPEND args "${folder}")
  endif()
endforeach()
if(NOT args)
  message(STATUS "no inputs to replay")
  return()
endif()
file(REMOVE_RECURSE "${SCRATCH}")
file(MAKE_DIRECTORY "${SCRATCH}")
execute_process(COMMAND "${PROGRAM}" -runs=0 "-artifact_prefix=${SCRATCH}/" "${SCRATCH}" ${args}
                RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${PROGRAM} failed on its inputs (${result})")
endif()
