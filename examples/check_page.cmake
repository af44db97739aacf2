# Fails unless PAGE contains the text of EXAMPLE.
file(READ ${PAGE} page)
file(READ ${EXAMPLE} example)
string(FIND "${page}" "${example}" position)
if(position EQUAL -1)
  message(FATAL_ERROR "${PAGE} does not show ${EXAMPLE} as it is")
endif()
