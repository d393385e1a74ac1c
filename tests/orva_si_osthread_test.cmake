# POSIX calls that do not fail by themselves.
foreach(function pthread_attr_init pthread_create pthread_mutex_init pthread_mutex_lock pthread_mutex_unlock
                 sem_init sem_wait sem_destroy)
    target_link_options(orva_si_osthread_test PRIVATE -Wl,--wrap=${function})
endforeach()
