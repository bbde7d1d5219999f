# Makes the seed corpus of the fuzz targets in OUT with ffmpeg and AtomicParsley,
# and copies the text seeds (cue sheets, CDDB answers) beside them:
# cmake -DOUT=folder -P make_seed_corpus.cmake
find_program(FFMPEG ffmpeg REQUIRED)
find_program(ATOMICPARSLEY AtomicParsley REQUIRED)
file(REMOVE_RECURSE ${OUT})
file(MAKE_DIRECTORY ${OUT}/asf ${OUT}/mp4 ${OUT}/work)
file(COPY ${CMAKE_CURRENT_LIST_DIR}/seeds/ DESTINATION ${OUT})

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_QUIET ERROR_VARIABLE errors)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${ARGN} failed: ${errors}")
  endif()
endfunction()

set(SINE -v error -y -f lavfi -i sine=frequency=330:duration=0.4)
set(TAGS -metadata title=Seed -metadata artist=Fuzzer -metadata album=Corpus
         -metadata genre=Rock -metadata track=3/12 -metadata date=2020)
run(${FFMPEG} ${SINE} ${TAGS} -metadata WM/Year=2020 -c:a wmav2 -b:a 32k ${OUT}/asf/tagged.wma)
run(${FFMPEG} ${SINE} -c:a wmav1 -b:a 32k ${OUT}/asf/untagged.wma)
# The objects of the header without the header object around them: the walk
# then has no object count to stop it.
find_program(TAIL tail REQUIRED)
execute_process(COMMAND ${TAIL} -c +31 ${OUT}/asf/tagged.wma OUTPUT_FILE ${OUT}/asf/headerless.wma RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "tail failed")
endif()

run(${FFMPEG} ${SINE} ${TAGS} -c:a aac -b:a 32k -movflags +faststart ${OUT}/mp4/faststart.m4a)
run(${FFMPEG} ${SINE} ${TAGS} -c:a aac -b:a 32k ${OUT}/mp4/moov-last.m4a)
run(${FFMPEG} -v error -y -f lavfi -i color=c=red:s=8x6 -frames:v 1 ${OUT}/work/cover.png)
run(${FFMPEG} -v error -y -f lavfi -i color=c=blue:s=6x4 -frames:v 1 ${OUT}/work/back.jpg)
run(${ATOMICPARSLEY} ${OUT}/mp4/faststart.m4a --overWrite --genre Rock --information seed
    --artwork ${OUT}/work/cover.png --artwork ${OUT}/work/back.jpg)
file(REMOVE_RECURSE ${OUT}/work)
