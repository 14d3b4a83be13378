# A task that finishes outside an event is not destroyed.
s/m_Finished.push_back(task);/if (std::this_thread::get_id() == m_Thread.get_id()) {\n        &\n    }/
