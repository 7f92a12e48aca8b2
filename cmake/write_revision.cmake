# Writes the C++ file that names the commit of a source tree, unless it says so already.
#   cmake -D SOURCE=tree -D OUTPUT=file -P write_revision.cmake
set(revision "")
# A tree without this may lie within the checkout of another project.
if(EXISTS ${SOURCE}/.git)
  find_program(git git)
  if(git)
    # --no-optional-locks: does not get in the way of a git command that runs meanwhile.
    execute_process(
      COMMAND ${git} --no-optional-locks describe --always --abbrev=12 --dirty --exclude=*
      WORKING_DIRECTORY ${SOURCE}
      OUTPUT_VARIABLE revision OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  endif()
endif()
file(CONFIGURE OUTPUT ${OUTPUT} CONTENT [[#include "commandline/version.h"

const char commandline::kRevision[] = "@revision@";
]] @ONLY)
