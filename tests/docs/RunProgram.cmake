# Runs a README program: it must exit 0 and print exactly the README's output block.
execute_process(COMMAND ${PROGRAM} RESULT_VARIABLE status OUTPUT_VARIABLE printed)
file(READ ${EXPECTED} expected)
if(NOT status STREQUAL "0")
  message(FATAL_ERROR "the program ended with ${status}; it printed:\n${printed}")
endif()
if(NOT printed STREQUAL expected)
  message(FATAL_ERROR "the program printed:\n${printed}\nthe README shows:\n${expected}")
endif()
