# Options every target of the project shares: warnings, and the sanitizer build when asked.
function(tavrokvm_configure_target target)
    target_compile_options(${target} PRIVATE -Wall -Wextra)
    # Log lines name their source file and line in every build type.
    target_compile_definitions(${target} PRIVATE QT_MESSAGELOGCONTEXT)
    if(TAVROKVM_SANITIZE)
        target_compile_options(${target} PRIVATE
            -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
        target_link_options(${target} PRIVATE -fsanitize=address,undefined)
    endif()
endfunction()
