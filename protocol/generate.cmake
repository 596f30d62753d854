# vesk_generate(KIND FILE [DEPENDENCY...]): FILE is made from vesk.yaml by generate.py, which says what kinds there are.
function(vesk_generate kind file)
  find_program(PYTHON3 python3 REQUIRED)
  set(folder ${PROJECT_SOURCE_DIR}/protocol)
  add_custom_command(OUTPUT ${file}
    COMMAND ${PYTHON3} ${folder}/generate.py ${kind} ${file}
    DEPENDS ${folder}/generate.py ${folder}/command_table.py ${folder}/pages.py
            ${folder}/vesk.yaml ${folder}/veskctl.bash.in
            ${folder}/veskctl.1.scd.in ${ARGN}
    VERBATIM)
endfunction()
