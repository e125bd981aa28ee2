# ostrand_replace_operator_new(<library>)
#
# Programs that link the library get the operator new and delete of allocation_faults.cpp under
# clang's thread sanitizer too. Its runtime defines them, always comes first and cannot be
# overridden by a definition, so the linker is told what the names mean. Other builds need nothing.
function(ostrand_replace_operator_new library)
  if(NOT (CMAKE_CXX_COMPILER_ID MATCHES "Clang" AND OSTRAND_SANITIZE MATCHES "thread"))
    return()
  endif()
  set(new m)
  set(new_nothrow mRKSt9nothrow_t)
  set(new_aligned mSt11align_val_t)
  set(new_aligned_nothrow mSt11align_val_tRKSt9nothrow_t)
  foreach(form new new_nothrow new_aligned new_aligned_nothrow)
    foreach(operator nw na)
      target_link_options(${library} INTERFACE
                          "LINKER:--defsym=_Z${operator}${${form}}=ostrand_fakes_${form}")
    endforeach()
  endforeach()
  foreach(arguments Pv Pvm PvSt11align_val_t PvmSt11align_val_t PvRKSt9nothrow_t
          PvSt11align_val_tRKSt9nothrow_t)
    foreach(operator dl da)
      target_link_options(${library} INTERFACE
                          "LINKER:--defsym=_Z${operator}${arguments}=ostrand_fakes_delete")
    endforeach()
  endforeach()
endfunction()
