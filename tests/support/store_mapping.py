"""The settings and mapping that stores give the indices they create."""

PROJECT = {"projectGuid": {"type": "keyword"}, "projectName": {"type": "keyword"}}
MAPPING = {
    "settings": {"number_of_shards": 1},
    "mappings": {"properties": {"projectList": {"type": "nested", "properties": PROJECT}}},
}
