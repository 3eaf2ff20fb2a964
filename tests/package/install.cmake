# Installs the build folder into the prefix as a user would, but links the models and Python packages, which are large.
execute_process(COMMAND_ERROR_IS_FATAL ANY COMMAND "${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${PREFIX}" --component kestrelml)
execute_process(COMMAND_ERROR_IS_FATAL ANY COMMAND "${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${PREFIX}" --component kestrel_programs)
set(ENV{CMAKE_INSTALL_MODE} ABS_SYMLINK)
execute_process(COMMAND_ERROR_IS_FATAL ANY COMMAND "${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${PREFIX}" --component kestrel_data)
