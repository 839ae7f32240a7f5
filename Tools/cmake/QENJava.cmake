# The JDK the Java binding, its tests and its benchmark build with, found once for every folder:
# javac, the jar tool and UseJava's add_jar, the JNI headers (JNI_INCLUDE_DIRS) and the JVM library
# a program that starts a JVM links (JAVA_JVM_LIBRARY).
find_package(Java 17 REQUIRED COMPONENTS Development)
# The JDK that compiles the classes also gives the headers (not another JDK the machine may have).
if(NOT DEFINED JAVA_HOME)
  get_filename_component(QEN_JAVAC_REAL ${Java_JAVAC_EXECUTABLE} REALPATH)
  get_filename_component(JAVA_HOME ${QEN_JAVAC_REAL} DIRECTORY)
  get_filename_component(JAVA_HOME ${JAVA_HOME} DIRECTORY)
endif()
# A headless JDK has no AWT; the JNI library itself never links the JVM.
find_package(JNI REQUIRED COMPONENTS JVM)
include(UseJava)
set(CMAKE_JAVA_COMPILE_FLAGS -Xlint:all -Werror --release 17)
