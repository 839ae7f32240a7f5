// Reads back the library's Zipkin v2 JSON with zipkin-go, Zipkin's Go library (Debian's
// golang-github-openzipkin-zipkin-go-dev): its span model must decode every span of
// spans-v2.json into what our JSON says. (The B3 headers are read back by OpenTelemetry JS, in
// all three of their forms.)
//
// Usage: go run check_zipkin_go.go WRITER_PROGRAM...   Prints "N passed, M failed".
package main

import (
	"encoding/json"
	"fmt"
	"io/ioutil"
	"os"
	"os/exec"
	"path/filepath"
	"reflect"

	"github.com/openzipkin/zipkin-go/model"
)

var passed, failed int

func check(ok bool, what string, args ...interface{}) {
	if ok {
		passed++
		return
	}
	failed++
	fmt.Printf("FAILED: "+what+"\n", args...)
}

type ourSpan struct {
	TraceID        string            `json:"traceId"`
	ID             string            `json:"id"`
	ParentID       string            `json:"parentId"`
	Name           string            `json:"name"`
	Kind           string            `json:"kind"`
	Timestamp      int64             `json:"timestamp"`
	Duration       int64             `json:"duration"`
	LocalEndpoint  map[string]string `json:"localEndpoint"`
	RemoteEndpoint map[string]string `json:"remoteEndpoint"`
	Tags           map[string]string `json:"tags"`
	Annotations    []struct {
		Timestamp int64  `json:"timestamp"`
		Value     string `json:"value"`
	} `json:"annotations"`
}

func serviceOf(endpoint *model.Endpoint) string {
	if endpoint == nil {
		return ""
	}
	return endpoint.ServiceName
}

func checkSpans(encoded []byte) {
	var ours []ourSpan
	var theirs []model.SpanModel
	check(json.Unmarshal(encoded, &ours) == nil, "our v2 JSON parses")
	err := json.Unmarshal(encoded, &theirs)
	check(err == nil, "zipkin-go decodes our v2 JSON: %v", err)
	check(len(ours) > 0 && len(ours) == len(theirs), "span count")
	for index := 0; index < len(ours) && index < len(theirs); index++ {
		mine, zipkin := ours[index], theirs[index]
		parent := ""
		if zipkin.ParentID != nil {
			parent = fmt.Sprintf("%016x", uint64(*zipkin.ParentID))
		}
		check(zipkin.TraceID.String() == mine.TraceID && fmt.Sprintf("%016x", uint64(zipkin.ID)) ==
			mine.ID && parent == mine.ParentID, "%s: ids", mine.Name)
		check(zipkin.Name == mine.Name && string(zipkin.Kind) == mine.Kind, "%s: name and kind", mine.Name)
		check(serviceOf(zipkin.LocalEndpoint) == mine.LocalEndpoint["serviceName"] &&
			serviceOf(zipkin.RemoteEndpoint) == mine.RemoteEndpoint["serviceName"], "%s: endpoints", mine.Name)
		check(zipkin.Timestamp.UnixNano()/1000 == mine.Timestamp && int64(zipkin.Duration)/1000 == mine.Duration,
			"%s: times", mine.Name)
		tags := mine.Tags
		if tags == nil {
			tags = map[string]string{}
		}
		theirTags := zipkin.Tags
		if theirTags == nil {
			theirTags = map[string]string{}
		}
		check(reflect.DeepEqual(theirTags, tags), "%s: tags", mine.Name)
		check(len(zipkin.Annotations) == len(mine.Annotations), "%s: annotations", mine.Name)
		for at := 0; at < len(zipkin.Annotations) && at < len(mine.Annotations); at++ {
			check(zipkin.Annotations[at].Value == mine.Annotations[at].Value &&
				zipkin.Annotations[at].Timestamp.UnixNano()/1000 == mine.Annotations[at].Timestamp,
				"%s: annotation %d", mine.Name, at)
		}
	}
}

func main() {
	folder, err := ioutil.TempDir("", "qen-zipkin-go-")
	if err != nil {
		panic(err)
	}
	defer os.RemoveAll(folder)
	writer := exec.Command(os.Args[1], append(os.Args[2:], folder)...)
	writer.Stdout, writer.Stderr = os.Stdout, os.Stderr
	if err := writer.Run(); err != nil {
		panic(err)
	}
	read := func(name string) []byte {
		bytes, err := ioutil.ReadFile(filepath.Join(folder, name))
		if err != nil {
			panic(err)
		}
		return bytes
	}
	checkSpans(read("spans-v2.json"))
	fmt.Printf("%d passed, %d failed\n", passed, failed)
	if failed > 0 || passed == 0 {
		os.Exit(1)
	}
}
