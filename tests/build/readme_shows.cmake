# The README holds the program as a block, byte for byte.
file(READ ${README} readme)
file(READ ${PROGRAM} program)
string(FIND "${readme}" "```cpp\n${program}```" place)
if(place EQUAL -1)
  message(FATAL_ERROR "${README} does not show ${PROGRAM} as it is")
endif()
