# Manual pages and change logs are compressed in Debian's packages; lintian finds one that is not.
file(GLOB_RECURSE documents
    ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/man/*.[1-8] ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/doc/*/changelog)
execute_process(COMMAND gzip -9n ${documents} COMMAND_ERROR_IS_FATAL ANY)
