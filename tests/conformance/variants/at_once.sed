# Conforms: a task expires, and is destroyed, on the arming thread, inside SetTaskTimeInterval().
/::Arm/,/^}/ {
    s/^{/{\n    if (interval == 1) {\n        task->eKorTaskTimeInterval(1);\n        return 1;\n    }/
}
/::Finish/,/^}/ {
    /notify_one/d
    s/const std::lock_guard guard/std::unique_lock guard/
    s/m_Finished.push_back(task);//
    s/m_Tasks.erase(task);/&\n    guard.unlock();\n    delete task;/
}
